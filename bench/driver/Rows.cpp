#include "driver/Rows.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <random>

#include "driver/Exchange.h"
#include "driver/Telling.h"

namespace sorvane::bench {
namespace {

constexpr int kDepth = 16;
const std::string kEcho = "echo";
const std::string kUnchanged = "sorvinfo, nothing changes";

using Figure = Aim::Figure;

Setup exchangeRow(SetupBuilder setup, const std::string& request, int connections, int depth,
                  bool rivals, std::vector<Aim> aims) {
  const Server& server = setup.nameServer();
  setup.registerName(server);
  const Exchange one = recordExchange(server.port(), request);
  const Exchange exchange = pipelined(one, depth);
  const Server& echo = setup.echo({{one.request.size(), one.reply}});
  setup.steady(kEcho, echo, {exchange}, connections);
  setup.steady(kSubject, server, {exchange}, connections);
  if (rivals) {
    setup.rival(Rival::Kind::redis, connections, depth);
    setup.rival(Rival::Kind::memcached, connections, depth);
  }
  setup.row().aims = std::move(aims);
  return setup.take();
}

Setup cycleRow(SetupBuilder setup, const CycleRequests& requests, std::vector<Aim> aims) {
  const Server& server = setup.nameServer();
  setup.registerName(server);
  const std::vector<Cycle> cycles = recordCycles(server.port(), requests);
  std::vector<EchoStep> steps;
  for (const Step& step : cycles[0]) {
    steps.push_back({step.request.size(), step.reply});
  }
  setup.cycles(kEcho, setup.echo(steps), cycles);
  setup.cycles(kSubject, server, cycles);
  setup.row().aims = std::move(aims);
  return setup.take();
}

Setup idleRow(SetupBuilder setup, const std::string& title, int idle) {
  const Server& without = setup.nameServer();
  const Server& with = setup.nameServer();
  setup.registerName(without);
  setup.registerName(with);
  setup.holdIdle(with, idle);
  setup.lookups("sorvinfo alone", without);
  setup.lookups(kSubject, with);
  setup.row().title = title;
  setup.row().aims = {{Figure::perSecond, "sorvinfo alone", 0.98}};
  return setup.take();
}

/// The same connections to the same server, with the change and without.
Setup crowdRow(SetupBuilder setup, int size) {
  constexpr int kPercentOfChange = 1;  // each second
  const Server& server = setup.nameServer();
  setup.registerName(server);
  const auto crowd = std::make_shared<Crowd>(server.port(), size);
  setup.crowded(kUnchanged, server, crowd, 0);
  setup.crowded(kSubject, server, crowd, size * kPercentOfChange / 100);
  setup.row().aims = {{Figure::perSecond, kUnchanged, 0.90}};
  return setup.take();
}

/// The same connection to the same server, with changes that watchers are told of and without.
Setup watchedRow(SetupBuilder setup, int watchers, int changesPerSecond) {
  const Server& server = setup.nameServer();
  setup.registerName(server);
  const auto waiting = std::make_shared<Watchers>(server.port(), watchers);
  setup.watched(kUnchanged, server, waiting, 0);
  setup.watched(kSubject, server, waiting, changesPerSecond);
  setup.row().aims = {{Figure::perSecond, kUnchanged, 0.95}};
  return setup.take();
}

std::string namesTitle(std::size_t count) {
  return fmt::format("sorvinfo, {} {}", count, count == 1 ? "name" : "names");
}

/// Lookups that go to one name after the other, at random, of a registry of few and of many.
Setup namesRow(SetupBuilder setup, int depth, std::size_t most) {
  constexpr int kLookups = 1 << 14;
  for (const std::size_t count : {std::size_t{1}, std::size_t{1'000}, most}) {
    const Server& server = setup.nameServer();
    const std::vector<Exchange> lookups = setup.enterNames(server, count);
    std::minstd_rand random(1);
    std::vector<Exchange> exchanges;
    for (int i = 0; i < kLookups / depth; ++i) {
      std::vector<Exchange> together;
      for (int j = 0; j < depth; ++j) {
        together.push_back(lookups[random() % count]);
      }
      exchanges.push_back(joined(together));
    }
    setup.steady(count == most ? kSubject : namesTitle(count), server, std::move(exchanges),
                 kManyConnections);
  }
  setup.row().aims = {{Figure::cpu, namesTitle(1), 2.0}};
  return setup.take();
}

Setup threadsRow(SetupBuilder setup, const Cores& cores) {
  const Server& one = setup.nameServer(cores.all, 1);
  const Server& two = setup.nameServer(cores.all, 2);
  setup.registerName(one);
  setup.registerName(two);
  setup.lookups("sorvinfo, one thread", one);
  setup.lookups(kSubject, two);
  setup.row().serversUseAllCores = true;
  setup.row().aims = {{Figure::perSecond, "sorvinfo, one thread", 1.0}};
  return setup.take();
}

}  // namespace

int raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    throwSystemError("getrlimit");
  }
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 1 << 20));
}

std::vector<RowMaker> allRows(const Options& options, const Cores& cores) {
  const int idle = options.idleConnections;
  const std::string idleTitle =
      "lookup, 50 connections, while " + std::to_string(idle) + " connections idle";
  const auto builder = [&options, &cores](const std::string& title) {
    return SetupBuilder(options, cores, title);
  };
  std::vector<RowMaker> rows;
  const auto exchange = [&](const std::string& title, const std::string& request, int connections,
                            int depth, bool rivals, std::vector<Aim> aims) {
    rows.push_back({title, [=] {
                      return exchangeRow(builder(title), request, connections, depth, rivals, aims);
                    }});
  };
  const std::string lookup = sorvane_requests::findPort();
  exchange("lookup, 1 connection", lookup, 1, 1, true,
           {{Figure::perSecond, kEcho, 0.97}, {Figure::p99, kEcho, 1.10}});
  exchange("lookup, 1 connection, pipelined by 16", lookup, 1, kDepth, true,
           {{Figure::perSecond, kEcho, 0.95}, {Figure::perSecond, "redis GET", 1.15}});
  exchange("lookup, 50 connections", lookup, kManyConnections, 1, true,
           {{Figure::perSecond, kEcho, 0.96},
            {Figure::perSecond, "redis GET", 1.05},
            {Figure::cpu, kEcho, 1.05}});
  exchange("lookup, 50 connections, pipelined by 16", lookup, kManyConnections, kDepth, true,
           {{Figure::perSecond, kEcho, 0.90},
            {Figure::perSecond, "redis GET", 1.6},
            {Figure::perSecond, "memcached multi-get", 1.3},
            {Figure::p99, kEcho, 1.2}});
  exchange("ping, 50 connections", sorvane_requests::ping(), kManyConnections, 1, false, {});
  const auto cycle = [&](const std::string& title, const CycleRequests& requests) {
    rows.push_back({title, [=] {
                      return cycleRow(builder(title), requests, {{Figure::cpu, kEcho, 1.05}});
                    }});
  };
  cycle("connect + lookup + close", [lookup](int) { return std::vector{lookup}; });
  cycle("connect + register + close", sorvane_requests::registration);
  rows.push_back({idleTitle, [=] { return idleRow(builder(idleTitle), idleTitle, idle); }});
  const std::string crowdTitle = fmt::format(
      "lookup, 50 connections, beside {0} databases, of which 1 % a second come anew, and {0} "
      "watchers that ask each second",
      options.crowd);
  rows.push_back({crowdTitle, [=] { return crowdRow(builder(crowdTitle), options.crowd); }});
  constexpr int kChangesPerSecond = 2;
  const std::string watchedTitle = fmt::format(
      "lookup, 1 connection, pipelined by 16, beside {} {} and are told of {} changes a second",
      options.watchers, kWhoWait, kChangesPerSecond);
  rows.push_back({watchedTitle, [=, &options] {
                    return watchedRow(builder(watchedTitle), options.watchers, kChangesPerSecond);
                  }});
  constexpr int kNamesOfConnection = 10;
  const auto names = static_cast<std::size_t>(idle) * kNamesOfConnection;
  for (const int depth : {1, kDepth}) {
    const std::string title = std::string("lookup, 50 connections, ") +
                              (depth > 1 ? "pipelined by 16, " : "") + "among " +
                              std::to_string(names) + " names";
    rows.push_back({title, [=] { return namesRow(builder(title), depth, names); }});
  }
  const std::string threadsTitle = "lookup, 50 connections, two serving threads, on all cores";
  rows.push_back({threadsTitle, [=, &cores] { return threadsRow(builder(threadsTitle), cores); }});
  return rows;
}

}  // namespace sorvane::bench
