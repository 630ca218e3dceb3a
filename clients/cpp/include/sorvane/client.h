// libsorvane: a client of the name server of the Sorvane database product.
//
// A name server runs on each host. Database servers register with it under a name, and programs ask
// it where the database of that name listens. This header is all that a program needs:
//
//   Client         asks: is it there, where is a database, what is registered, what are the states
//   Registration   holds a name at the name server for as long as the object lives
//   Watch          calls back for each change of what is registered
//
// Link it by CMake, `find_package(sorvane)` and the target `sorvane::sorvane` (or
// `sorvane::sorvane-static`), or by pkg-config, `sorvane`. The language is C++20.
//
// Errors. What can fail for a reason outside the program returns a Result: a value, or an Error
// with a code and a reason in words. Nothing throws because of a network, a name server or an
// argument. std::bad_alloc is thrown when there is no memory. Where that happens on a thread of the
// library, the program ends.
//
// Threads. Distinct objects can be used by distinct threads at the same time. A Client belongs to
// one thread at a time. The methods of a Registration and of a Watch can be called by any thread,
// also several at a time; moving and destroying them cannot. Registration and Watch each have a
// thread of their own, on which all their callbacks run, one after the other. That thread takes no
// signals. A callback delays its object for as long as it runs.
//
// Callbacks. A callback may call everything of this header, also for its own object. It may destroy
// its own object: the destructor then returns at once, and no callback follows. An exception that
// leaves a callback ends the program by std::terminate.
//
// Texts are UTF-8 without a NUL; others are refused with `invalidArgument`. A name and a text of a
// request have together about a mebibyte at most, which is a limit of the name server.
//
// Processes. No descriptor of the library is passed on to a program that is started, and SIGPIPE is
// never raised. After a fork, only the parent may go on using the objects. The child should start a
// program or end: as long as it lives without that, it holds the parent's connections open.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#define SORVANE_CLIENT_API __attribute__((visibility("default")))

namespace sorvane::client {

namespace detail {
class Session;
class RegistrationWorker;
class WatchWorker;
}  // namespace detail

enum class ErrorCode {
  invalidArgument,  ///< what was given cannot be sent
  unreachable,      ///< the host is unknown, or there is no connection to its name server
  timedOut,         ///< the limit for connecting or for a reply is over
  closed,           ///< the connection ended before the reply
  protocol,         ///< what came is no reply of a name server
  refused,          ///< the name server said no
  notFound,         ///< no such name is registered
  unsupported,      ///< the name server is of an earlier version, which lacks the command
  system,           ///< this process has no descriptor or thread left
};

/// Why something could not be done.
struct Error {
  ErrorCode code;
  std::string reason;  ///< for people, such as "localhost port 20221: Connection refused"
};

/// A value, or the error that came in its place.
template <typename Value>
class [[nodiscard]] Result {
 public:
  Result(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

  /// True when there is a value.
  explicit operator bool() const noexcept { return content_.index() == 0; }

  /// The value. std::bad_variant_access is thrown when there is none.
  Value& value() & { return std::get<0>(content_); }
  const Value& value() const& { return std::get<0>(content_); }
  Value&& value() && { return std::get<0>(std::move(content_)); }
  Value& operator*() & { return value(); }
  const Value& operator*() const& { return value(); }
  Value&& operator*() && { return std::move(*this).value(); }
  Value* operator->() { return &value(); }
  const Value* operator->() const { return &value(); }

  /// The error. std::bad_variant_access is thrown when there is none.
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<Value, Error> content_;
};

/// Success without a value, or an error.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : error_(std::move(error)) {}

  explicit operator bool() const noexcept { return !error_; }
  /// The error. std::bad_optional_access is thrown when there is none.
  const Error& error() const { return error_.value(); }

 private:
  std::optional<Error> error_;
};

/// Where a name server is, and how long to wait for it.
struct NameServer {
  std::string host = "localhost";                ///< a name or an address, without a port
  std::uint16_t port = 20221;                    ///< 1 to 65535
  std::chrono::milliseconds connectLimit{5000};  ///< resolving the host and connecting, in all
  std::chrono::milliseconds replyLimit{10000};   ///< from a request to the end of its reply
};

/// What is registered under a name. What is not known is empty, 0 or absent.
struct Entry {
  std::string name;
  int number = 0;       ///< the port of the database, 1 to 65535; 0 if none was registered
  std::string host;     ///< the host of the database, as registered; see Client::reachableHost
  std::string address;  ///< its address, as registered
  std::string type;     ///< such as "database"
  std::string state;    ///< such as "running"; empty if none was reported
  std::string alert;    ///< the last alert; it lapses an hour after alertTime
  std::optional<std::chrono::system_clock::time_point> alertTime;
  bool left = false;  ///< the registering connection has ended, and the name was left behind

  bool operator==(const Entry&) const = default;
};

/// A database and the state that was reported for it; "running" if none was.
struct DatabaseState {
  std::string name;
  std::string state;
};

/// What a name server tells of its host.
struct HostInfo {
  std::string name;
  std::string hardwareAddress;  ///< such as "02:00:5e:10:00:07"
  std::string address;
  std::string version;   ///< of the name server
  std::string platform;  ///< its operating system
};

/// A connection to a name server that is asked. A call waits for its reply. After an error of the
/// connection, and after the name server was restarted, the next call connects again.
///
///   auto client = sorvane::client::Client::connect();
///   if (client) {
///     if (const auto database = client->find("db1")) use(database->number);
///   }
class SORVANE_CLIENT_API Client {
 public:
  /// Connects within `server.connectLimit`. A host that answers slowly in the system's look-up
  /// occupies a thread of the library beyond that, until the system gives up.
  static Result<Client> connect(const NameServer& server = {});

  /// Closes the connection.
  ~Client();
  /// What was moved from can only be destroyed or assigned to.
  Client(Client&& other) noexcept;
  Client& operator=(Client&& other) noexcept;
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// Asks whether the name server answers.
  Result<void> ping();

  /// Finds a database. The entry has number, host and type; its address is empty. The error
  /// `notFound` means that no such name is registered.
  Result<Entry> find(std::string_view name);

  /// The host at which a database that this name server told of is reached: its registered host,
  /// or the host of the name server if it registered none or a loopback name.
  [[nodiscard]] std::string reachableHost(const Entry& entry) const;

  /// Lists the databases, ordered by name: all names except the name server's own and that of the
  /// launcher. A name server of an earlier version is asked for each name; it tells neither
  /// addresses nor the times of alerts, and nothing of names with ":" or "|".
  Result<std::vector<Entry>> list();

  /// The same databases with their states alone.
  Result<std::vector<DatabaseState>> states();

  /// Reports the state of a database. That there is such a database is not checked.
  Result<void> setState(std::string_view name, std::string_view state);

  /// Raises an alert for a database. It lapses after an hour.
  Result<void> setAlert(std::string_view name, std::string_view text);

  /// Asks about the host of the name server.
  Result<HostInfo> hostInfo();

  /// Takes out a name that was left behind (Entry::left). The error `refused` means that there is
  /// no such name, that its connection lives, or that it is the name server's own.
  Result<void> forget(std::string_view name);

 private:
  explicit Client(std::unique_ptr<detail::Session> session);
  std::unique_ptr<detail::Session> session_;
};

/// Holds a name at the name server while it lives, on a thread of its own. A connection that is
/// lost, a name server that hangs and one that is restarted are noticed. The name is then
/// registered again by itself, with the same number, and what was set by setState and setAlert is
/// set again. Attempts are 0.2 to 2 seconds apart, at random.
///
/// The name belongs to the connection that registered it last. A Registration takes its name over
/// when it starts and whenever its own connection was lost, and at no other time: while another
/// connection has the name it waits, and its status is `taken`. When that one ends, it registers
/// again. It checks this 1 second after it has registered. Each pause until the next check is twice
/// as long as the one before, up to `checkEvery`.
class SORVANE_CLIENT_API Registration {
 public:
  struct Status {
    enum class Kind {
      away,        ///< there is no connection, or none yet
      refused,     ///< the name server, or `listen`, said no; it is tried again
      registered,  ///< the name is registered with `number`
      taken,       ///< another connection has registered the name since
    };
    Kind kind = Kind::away;
    int number = 0;      ///< of this database, 1 to 65535; 0 as long as there is none
    std::string reason;  ///< in words; empty when registered

    bool operator==(const Status&) const = default;
  };

  struct Options {
    std::string name;               ///< not empty
    std::string type = "database";  ///< any text
    std::string host;               ///< where the database listens; empty: the name of this host
    std::string address;            ///< its address; empty: none is registered

    /// The port on which the database listens already, 1 to 65535; 0: the name server gives one
    /// out.
    int number = 0;
    /// Begins to listen on the number that the name server gives out, before clients can find it.
    /// Returns false if that is not possible; another number is then asked for, 100 times at most
    /// before the attempt counts as refused. Called until it has returned true once, never for a
    /// number that was given above, and never when it is empty.
    std::function<bool(int number)> listen;

    /// Called whenever the status has changed.
    std::function<void(const Status& status)> onStatus;
    /// Called when the name server has not taken a state or an alert. It is set again with the next
    /// registration.
    std::function<void(const Error& error)> onError;

    /// The longest pause between two checks that the name server answers and still has the name; at
    /// least 10 ms. One that hangs is noticed after this time and `NameServer::replyLimit`.
    std::chrono::milliseconds checkEvery{10000};
  };

  /// Returns at once; the registering goes on on the thread of the object. The errors are
  /// `invalidArgument` and `system`.
  static Result<Registration> start(const NameServer& server, Options options);

  /// Ends the registration: the connection closes, and the name server forgets the name. Returns
  /// within a tenth of a second, unless a callback is running: that is waited for.
  ~Registration();
  /// What was moved from can only be destroyed or assigned to. Assigning ends the former one.
  Registration(Registration&& other) noexcept;
  Registration& operator=(Registration&& other) noexcept;
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  /// The status now.
  [[nodiscard]] Status status() const;

  /// Waits until the name is registered, and returns the number. When the limit is over, the error
  /// has the last reason. Inside a callback of this object it does not wait.
  Result<int> waitUntilRegistered(std::chrono::milliseconds limit) const;

  /// Keeps a state for the database, and reports it as soon as the name is registered and whenever
  /// it is registered again. Of several that come close together the last one is reported. Does not
  /// wait; the error is `invalidArgument`.
  Result<void> setState(std::string_view state);

  /// The same for an alert. An hour later it has lapsed, and is not kept any longer.
  Result<void> setAlert(std::string_view text);

 private:
  explicit Registration(std::shared_ptr<detail::RegistrationWorker> worker);
  std::shared_ptr<detail::RegistrationWorker> worker_;
};

/// A change of what is registered.
struct Change {
  enum class Kind {
    registered,  ///< the name is new
    changed,     ///< something of its entry is different now
    gone,        ///< the name is no longer registered; the entry is the last one known
  };
  Kind kind;
  Entry entry;
};

/// Tells each change of the databases of a name server, on a thread of its own: those that
/// Client::list lists. It first tells what is there, as `registered`. When the connection was lost,
/// it connects again, 0.2 to 2 seconds apart at random, and then tells only what is different.
/// Nothing counts as gone because the name server is away. Changes that come close together are
/// told as one. An alert that lapses is no change.
///
/// A change is told as soon as the name server knows it. One of an earlier version is asked every
/// `pollEvery`. The databases are kept in memory, up to 512 MiB of them.
class SORVANE_CLIENT_API Watch {
 public:
  struct Status {
    bool current = false;  ///< all that is there has been told
    std::string reason;    ///< in words why not; empty when current

    bool operator==(const Status&) const = default;
  };

  struct Options {
    /// Called for each change; not empty.
    std::function<void(const Change& change)> onChange;
    /// Called whenever the status has changed.
    std::function<void(const Status& status)> onStatus;
    /// How often a name server is asked that cannot tell by itself; at least 10 ms.
    std::chrono::milliseconds pollEvery{1000};
  };

  /// Returns at once; the watching goes on on the thread of the object. The errors are
  /// `invalidArgument` and `system`.
  static Result<Watch> start(const NameServer& server, Options options);

  /// Ends the watching. Returns within a tenth of a second, unless a callback is running: that is
  /// waited for.
  ~Watch();
  /// What was moved from can only be destroyed or assigned to. Assigning ends the former one.
  Watch(Watch&& other) noexcept;
  Watch& operator=(Watch&& other) noexcept;
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// The status now.
  [[nodiscard]] Status status() const;

 private:
  explicit Watch(std::shared_ptr<detail::WatchWorker> worker);
  std::shared_ptr<detail::WatchWorker> worker_;
};

}  // namespace sorvane::client
