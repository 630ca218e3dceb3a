#include "registry/Journal.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "platform/Console.h"
#include "platform/FreeMemory.h"
#include "platform/NSException.h"
#include "platform/NetConnection.h"
#include "registry/Registry.h"

namespace sorvane {
namespace {

constexpr std::size_t kGrowth = std::size_t{1} << 18;

void storeWord(char* at, std::uint64_t value, int order) {
  auto* const word = reinterpret_cast<std::uint64_t*>(at);
  order == __ATOMIC_RELEASE ? __atomic_store_n(word, value, __ATOMIC_RELEASE)
                            : __atomic_store_n(word, value, __ATOMIC_RELAXED);
}

void keepConnection(KeptWriter& writer, const Journal::Bound& bound, std::size_t connection,
                    const PortTable& table) {
  const PortDescriptor& record = *bound[connection];
  writer.number(connection);
  if (record.holdings().entries > 0) {
    writer.number(std::uint64_t{table.oldestOf(record)} + 1);
  } else {
    writer.number(0);
    record.keep(writer, KeptPart::inJournal);
  }
}

// Returns a file with that base and room for entries, or null. `end` is where they begin then.
std::shared_ptr<MemoryFile> fileWith(std::string_view header, std::string_view body,
                                     std::size_t& end) {
  const std::size_t baseBytes = header.size() + body.size();
  end = journal::roundedUp(journal::kAtBase + baseBytes);
  auto file = std::make_shared<MemoryFile>();
  if (!file->isOpen() || !file->growTo(end + kGrowth)) {
    return nullptr;
  }
  char* const at = file->bytes();
  std::memcpy(at, journal::kMark.data(), journal::kMark.size());
  std::memcpy(at + journal::kAtBase, header.data(), header.size());
  std::memcpy(at + journal::kAtBase + header.size(), body.data(), body.size());
  storeWord(at + journal::kAtBaseBytes, baseBytes, __ATOMIC_RELAXED);
  storeWord(at + journal::kAtEnd, end, __ATOMIC_RELAXED);
  return file;
}

std::vector<std::string_view> bytesOf(const std::vector<std::shared_ptr<MemoryFile>>& files) {
  std::vector<std::string_view> bytes;
  for (const auto& file : files) {
    bytes.emplace_back(file->bytes(), file->size());
  }
  return bytes;
}

}  // namespace

JournalMemory::JournalMemory(std::size_t descriptors)
    : descriptors_(descriptors),
      memory_(sizeof(Block) + descriptors * sizeof(Mark)),
      block_(reinterpret_cast<Block*>(memory_.bytes())),
      marks_(reinterpret_cast<Mark*>(memory_.bytes() + sizeof(Block))) {
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
  static_assert(sizeof(Block) % alignof(Mark) == 0);
}

std::vector<int> JournalMemory::files() const {
  std::vector<int> descriptors;
  for (const auto& file : block_->files[block_->current.load(std::memory_order_acquire) & 1]) {
    if (const int descriptor = file.load(std::memory_order_relaxed) - 1; descriptor >= 0) {
      descriptors.push_back(descriptor);
    }
  }
  return descriptors;
}

int JournalMemory::file() const {
  const Files& files = block_->files[block_->current.load(std::memory_order_acquire) & 1];
  return files.front().load(std::memory_order_relaxed) - 1;
}

void JournalMemory::setFiles(const std::vector<std::shared_ptr<MemoryFile>>& files) {
  const std::uint32_t other = 1 - (block_->current.load(std::memory_order_relaxed) & 1);
  for (std::size_t index = 0; index < kMostFiles; ++index) {
    block_->files[other][index].store(index < files.size() ? files[index]->descriptor() + 1 : 0,
                                      std::memory_order_relaxed);
  }
  block_->current.store(other, std::memory_order_release);
}

Journal::Journal(JournalMemory& memory, const Sizes& sizes) : memory_(memory), sizes_(sizes) {}

Journal::~Journal() {
  if (thread_.joinable()) {
    {
      const std::lock_guard<std::mutex> hold(filesLock_);
      isEnding_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }
  if (file_ != nullptr) {
    memory_.setFiles({});
  }
}

// One that has done nothing is told with what it does first, as any new one.
void Journal::bind(int connection, const PortDescriptor& record) {
  const bool hasDoneNothing = !record.portName() && !WatchList::contains(record);
  if (!hasDoneNothing && isBound(connection, record)) {
    keepWatching(connection, record);
  }
}

void Journal::unbind(int connection) {
  const auto index = static_cast<std::size_t>(connection);
  if (index < bound_.size()) {
    bound_[index] = nullptr;
  }
}

bool Journal::isBound(int connection, const PortDescriptor& record) {
  const auto index = static_cast<std::size_t>(connection);
  if (connection < 0 || index >= memory_.descriptors()) {
    endBecause("a connection has no descriptor that it could be called by");
    return false;
  }
  if (index >= bound_.size()) {
    try {
      bound_.resize(std::min(memory_.descriptors(), std::max(index + 1, 2 * bound_.size())));
    } catch (const std::bad_alloc&) {
      endBecause("there is no memory for it");
      return false;
    }
  }
  const PortDescriptor*& bound = bound_[index];
  if (bound == nullptr) {
    bound = &record;
  } else if (bound != &record) {
    endBecause("two connections have the same descriptor");
    return false;
  }
  return true;
}

template <typename Fill>
void Journal::prepare(Entry kind, Fill&& fill) {
  isPrepared_ = false;
  if (hasEnded_) {
    return;
  }
  try {
    entry_.clear();
    entry_.number(static_cast<std::uint64_t>(kind));
    fill();
    prepared_ = kind;
    isPrepared_ = true;
  } catch (const std::bad_alloc&) {
    endBecause("there is no memory for it");
  }
}

template <typename Fill>
void Journal::write(Entry kind, Fill&& fill) {
  prepare(kind, std::forward<Fill>(fill));
  didAsPrepared();
}

// The check sum is of what the memory should have. The length is stored when all else was: a
// process that dies before leaves a length of zero.
void Journal::didAsPrepared() {
  if (!isPrepared_) {
    return;
  }
  isPrepared_ = false;
  const std::string_view body = entry_.body();
  if (!hasRoomFor(journal::roundedUp(journal::kEntryHeader + body.size()))) {
    endBecause("there is no memory for it");
    return;
  }
  char* const at = file_->bytes() + end_;
  std::memcpy(at + journal::kEntryHeader, body.data(), body.size());
  storeWord(at + sizeof(std::uint64_t), journal::checkSum(end_, body), __ATOMIC_RELAXED);
  storeWord(at, body.size(), __ATOMIC_RELEASE);
  end_ += journal::roundedUp(journal::kEntryHeader + body.size());
  storeWord(file_->bytes() + journal::kAtEnd, end_, __ATOMIC_RELEASE);
  changes_ += journal::isTold(prepared_) ? 1 : 0;
}

bool Journal::hasRoomFor(std::size_t bytes) {
  return end_ + bytes <= file_->size() ||
         file_->growTo(std::max(end_ + bytes, file_->size() + kGrowth));
}

void Journal::writeRegistration(Entry kind, int connection, const PortDescriptor& record) {
  if (hasEnded_ || !isBound(connection, record)) {
    return;
  }
  write(kind, [&] {
    entry_.number(static_cast<std::uint64_t>(connection));
    const auto& [key, name, address, host, number, type] = record.registration();
    for (const auto& text : {key, name, address, host, number, type}) {
      entry_.optionalText(text);
    }
  });
}

void Journal::registrationReplaced(int connection, const PortDescriptor& record) {
  writeRegistration(Entry::registration, connection, record);
}

void Journal::enteredWith(int connection, const PortDescriptor& record) {
  writeRegistration(Entry::entryWith, connection, record);
}

void Journal::willEnter(int connection, const PortDescriptor& record, std::string_view name) {
  if (hasEnded_ || !isBound(connection, record)) {
    return;
  }
  prepare(Entry::entry, [&] {
    entry_.number(static_cast<std::uint64_t>(connection));
    entry_.text(name);
  });
}

// The end of a connection that has registered nothing changes nothing.
void Journal::ended(int connection, const PortDescriptor& record,
                    std::optional<std::string_view> name) {
  if (hasEnded_) {
    return;
  }
  const auto index = static_cast<std::size_t>(connection);
  if (connection < 0 || index >= bound_.size() || bound_[index] == nullptr) {
    if (name || record.holdings().entries > 0) {
      endBecause("a connection has ended that it does not know");
    }
    return;
  }
  if (!isBound(connection, record)) {
    return;
  }
  write(Entry::end, [&] {
    entry_.number(static_cast<std::uint64_t>(connection));
    entry_.optionalText(name);
  });
  bound_[index] = nullptr;
}

void Journal::willRemove(std::string_view name) {
  prepare(Entry::removal, [&] { entry_.text(name); });
}

void Journal::oldestLeftBehindRemoved() {
  write(Entry::oldestRemoval, [] {});
}

void Journal::statusSet(std::string_view name, std::string_view text) {
  write(Entry::status, [&] {
    entry_.text(name);
    entry_.text(text);
  });
}

void Journal::alertSet(std::string_view name, std::string_view text, double time) {
  write(Entry::alert, [&] {
    entry_.text(name);
    entry_.text(text);
    entry_.real(time);
  });
}

void Journal::alertDropped(std::uint32_t oldestSlot) {
  write(Entry::alertDrop, [&] { entry_.number(oldestSlot); });
}

void Journal::hostsChanged(const HostLists& hosts) {
  write(Entry::hosts, [&] { hosts.keep(entry_); });
}

void Journal::keepWatching(int connection, const PortDescriptor& record) {
  const auto index = static_cast<std::size_t>(connection);
  if (connection < 0 || index >= memory_.descriptors()) {
    return;
  }
  std::atomic<std::uint32_t>& marks = memory_.block_->marks;
  std::uint32_t used = marks.load(std::memory_order_relaxed);
  while (used <= index && !marks.compare_exchange_weak(used, static_cast<std::uint32_t>(index) + 1,
                                                       std::memory_order_relaxed)) {
  }
  JournalMemory::Mark& mark = memory_.markOf(index);
  const PortDescriptor::Watching watching = record.watching();
  mark.clearedAt.store(watching.clearedAt, std::memory_order_relaxed);
  mark.isDirty.store(watching.isDirty ? 1 : 0, std::memory_order_relaxed);
  mark.times.store(watching.times, std::memory_order_relaxed);
}

void Journal::keepConnections(KeptWriter& writer, const Bound& bound, const PortTable& table) {
  writer.number(static_cast<std::uint64_t>(
      std::ranges::count_if(bound, [](const auto* record) { return record != nullptr; })));
  // Records and slots are scattered over the memory. Fetching those of a slice at the same time
  // takes a fraction of fetching one after the other.
  constexpr std::size_t kSlice = 64;
  for (std::size_t first = 0; first < bound.size(); first += kSlice) {
    const std::size_t last = std::min(first + kSlice, bound.size());
    for (std::size_t connection = first; connection < last; ++connection) {
      __builtin_prefetch(bound[connection]);
    }
    for (std::size_t connection = first; connection < last; ++connection) {
      if (bound[connection] != nullptr) {
        table.prefetchOldestOf(*bound[connection]);
      }
    }
    for (std::size_t connection = first; connection < last; ++connection) {
      if (bound[connection] != nullptr) {
        keepConnection(writer, bound, connection, table);
      }
    }
  }
}

void Journal::begin(const KeptWriter& base) {
  if (hasEnded_) {
    return;
  }
  const std::string header = base.header();
  std::size_t end = 0;
  Files files = {fileWith(header, base.body(), end)};
  if (files.front() == nullptr) {
    cannotBegin();
    return;
  }
  std::vector<int> ofProcessBefore;
  if (file_ == nullptr) {
    forgetOtherConnections();
    ofProcessBefore = memory_.files();
  }
  file_ = files.front();
  end_ = end;
  {
    const std::lock_guard<std::mutex> hold(filesLock_);
    files_.swap(files);
    memory_.setFiles(files_);
    baseBytes_ = header.size() + base.body().size();
    longAt_ = end + roomBehind(baseBytes_);
  }
  for (const int file : ofProcessBefore) {
    const Descriptor closed(file);
  }
}

std::size_t Journal::roomBehind(std::size_t baseBytes) const {
  return std::max(baseBytes, sizes_.least - std::min(sizes_.least, baseBytes));
}

void Journal::startThread(const RegistryLimits& limits) {
  try {
    thread_ = std::thread([this, limits] { writeBases(limits); });
  } catch (const std::system_error&) {
    // The system has no further thread.
  }
}

// The files that are there already are only read from now on. If the thread has failed the last
// time, it gets what it had then and more. If it has failed twice, there is no place for another
// file, and the base is made of the registry itself.
bool Journal::beginOnThread(std::uint64_t bytes) {
  if (bytes <= sizes_.quick || !thread_.joinable() || isWritingBase()) {
    return false;
  }
  try {
    std::size_t end = 0;
    Files files;  // destroyed without the lock
    auto file = fileWith("", "", end);
    if (file == nullptr) {
      return false;
    }
    const std::lock_guard<std::mutex> hold(filesLock_);
    if (files_.size() == JournalMemory::kMostFiles) {
      return false;
    }
    toRead_ = files_;
    files_.reserve(JournalMemory::kMostFiles);
    files_.push_back(file);
    memory_.setFiles(files_);
    isWriting_ = true;
    longAt_ = sizes_.meanwhile;
    file_.swap(file);
    end_ = end;
  } catch (const std::bad_alloc&) {
    return false;
  }
  changed_.notify_one();
  return true;
}

bool Journal::isWritingBase() const {
  const std::lock_guard<std::mutex> hold(filesLock_);
  return isWriting_;
}

void Journal::writeBases(const RegistryLimits& limits) {
  std::unique_lock<std::mutex> hold(filesLock_);
  for (;;) {
    changed_.wait(hold, [&] { return !toRead_.empty() || isEnding_; });
    if (isEnding_) {
      return;
    }
    Files read = std::exchange(toRead_, {});
    hold.unlock();
    std::size_t end = 0;
    std::size_t baseBytes = 0;
    std::shared_ptr<MemoryFile> file;
    try {
      const KeptWriter base = Registry::journalBase(bytesOf(read), memory_.descriptors(), limits);
      const std::string header = base.header();
      baseBytes = header.size() + base.body().size();
      file = fileWith(header, base.body(), end);
    } catch (const NSException&) {     // NOLINT(bugprone-empty-catch): the files stay as they are
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): the same
    }
    hold.lock();
    isWriting_ = false;
    // Meanwhile journalling may have ended, and the base may have been written at once.
    const bool isWanted = files_.size() == read.size() + 1 && files_.front() == read.front();
    if (file != nullptr && isWanted) {
      files_ = {file, files_.back()};
      memory_.setFiles(files_);
      baseBytes_ = baseBytes;
      longAt_ = journal::kAtBase + roomBehind(baseBytes);
    }
    hold.unlock();
    file.reset();
    read.clear();
    returnFreeMemory();
    hold.lock();
  }
}

// The process before has left the marks of connections that have not gone on.
void Journal::forgetOtherConnections() {
  const std::size_t marks = std::min<std::size_t>(memory_.block_->marks, memory_.descriptors());
  for (std::size_t connection = 0; connection < marks; ++connection) {
    if (connection >= bound_.size() || bound_[connection] == nullptr) {
      memory_.markOf(connection).times.store(0, std::memory_order_relaxed);
    }
  }
}

void Journal::cannotBegin() {
  if (file_ == nullptr) {
    endBecause("there is no memory for it");
    return;
  }
  const std::lock_guard<std::mutex> hold(filesLock_);
  longAt_ = end_ + std::max(sizes_.least, std::size_t{1});
}

// A console line may wait for a disk, and locks are held here.
void Journal::endBecause(const char* reason) {
  if (hasEnded_) {
    return;
  }
  hasEnded_ = true;
  isPrepared_ = false;
  if (file_ == nullptr) {
    for (const int file : memory_.files()) {
      const Descriptor closed(file);
    }
  }
  file_.reset();
  Files files;  // destroyed without the lock
  {
    const std::lock_guard<std::mutex> hold(filesLock_);
    files_.swap(files);
    memory_.setFiles({});
  }
  try {
    const std::string line = "the journal of the registry has ended: " + std::string(reason) +
                             ". If the serving process dies, clients must register again.";
    NetConnection::performWaiting(Disk::log, [line] { consoleLine(line); });
  } catch (const std::bad_alloc&) {
    consoleLine("the journal of the registry has ended: there is no memory");
  }
}

}  // namespace sorvane
