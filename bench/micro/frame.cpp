// The frame codec: a request from the wire, a reply onto it.
#include "platform/wire/Frame.h"

#include <benchmark/benchmark.h>

#include <string>

#include "platform/Message.h"

namespace {

using sorvane::Message;

constexpr std::size_t kMaximumBody = std::size_t{1} << 20;

std::string frameOf(const Message& message) {
  sorvane::ByteBuffer bytes;
  sorvane::appendFrame(bytes, message.body());
  return std::string(bytes.view());
}

std::string findPort() {
  return frameOf(
      Message{{"findPort", "customers"}, {"portHost", "host7"}, {"portHostAddress", "192.0.2.10"}});
}

/// A request of that many entries, each with a short text.
std::string requestOf(std::int64_t entries) {
  Message message;
  for (std::int64_t i = 0; i < entries; ++i) {
    message.setText("key" + std::to_string(i), "a short text");
  }
  return frameOf(message);
}

/// As the server does: the message's storage is used again.
void decode(benchmark::State& state, const std::string& frame) {
  Message message;
  for (auto _ : state) {
    const sorvane::FrameHeader header = sorvane::readFrameHeader(frame, kMaximumBody);
    const char* const fault = message.readBody(
        std::string_view(frame).substr(sorvane::kFrameHeaderBytes, header.bodyBytes));
    if (header.fault != nullptr || fault != nullptr) {
      state.SkipWithError("the frame is malformed");
    }
    benchmark::DoNotOptimize(message.entries().data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * frame.size()));
}

void BM_DecodeLookup(benchmark::State& state) { decode(state, findPort()); }
BENCHMARK(BM_DecodeLookup);

/// The time for each entry must not grow with their number: keys are checked to be unique.
void BM_DecodeEntries(benchmark::State& state) {
  decode(state, requestOf(state.range(0)));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_DecodeEntries)->Arg(1)->Arg(8)->Arg(64)->Arg(1024)->Arg(16384);

void BM_FindValue(benchmark::State& state) {
  const Message message{
      {"findPort", "customers"}, {"portHost", "host7"}, {"portHostAddress", "192.0.2.10"}};
  for (auto _ : state) {
    benchmark::DoNotOptimize(message.requiredText("portHostAddress"));
  }
}
BENCHMARK(BM_FindValue);

void BM_EncodeLookupReply(benchmark::State& state) {
  sorvane::ByteBuffer output;
  for (auto _ : state) {
    output.clear();
    const std::size_t begin = sorvane::beginFrame(output);
    sorvane::MessageWriter writer(output);
    writer.text("portNumber", "20222");
    writer.text("portName", "customers");
    writer.text("portHostAddress", "192.0.2.10");
    writer.text("portHost", "host7");
    writer.text("portType", "sorvane");
    sorvane::endFrame(output, begin);
    benchmark::DoNotOptimize(output.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * output.size()));
}
BENCHMARK(BM_EncodeLookupReply);

/// A request that goes back as its own reply.
void BM_EncodeRequestAsReply(benchmark::State& state) {
  const std::string body = requestOf(4).substr(sorvane::kFrameHeaderBytes);
  sorvane::ByteBuffer output;
  for (auto _ : state) {
    output.clear();
    sorvane::appendFrame(output, body);
    benchmark::DoNotOptimize(output.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * output.size()));
}
BENCHMARK(BM_EncodeRequestAsReply);

}  // namespace
