#include "service/SystemCallFilters.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <map>
#include <memory>
#include <stdexcept>

namespace sorvane::test {
namespace {

/// A filter that is being put together. Several filters of a process all hold.
class Filter {
 public:
  explicit Filter(std::uint32_t otherwise) : context_(seccomp_init(otherwise), seccomp_release) {
    require(context_ != nullptr);
  }
  void allow(const std::string& name) {
    // The sets have calls that this processor does not have.
    const int number = seccomp_syscall_resolve_name(name.c_str());
    if (number >= 0) {
      require(seccomp_rule_add(context_.get(), SCMP_ACT_ALLOW, number, 0) == 0);
    }
  }
  void refuse(int number) { add(SCMP_ACT_KILL_PROCESS, number, {}); }
  /// Refuses the call when the bits of `mask` of that argument are `value`.
  void refuse(int number, unsigned argument, std::uint64_t mask, std::uint64_t value) {
    add(SCMP_ACT_KILL_PROCESS, number, {SCMP_CMP64(argument, SCMP_CMP_MASKED_EQ, mask, value)});
  }
  void fail(int number, int error) {
    add(SCMP_ACT_ERRNO(static_cast<std::uint32_t>(error)), number, {});
  }
  void load() { require(seccomp_load(context_.get()) == 0); }

 private:
  static void require(bool done) {
    if (!done) {
      throw std::runtime_error("a filter for system calls cannot be made");
    }
  }
  void add(std::uint32_t action, int number, const std::vector<scmp_arg_cmp>& conditions) {
    require(seccomp_rule_add_array(context_.get(), action, number,
                                   static_cast<unsigned>(conditions.size()),
                                   conditions.data()) == 0);
  }

  std::unique_ptr<void, void (*)(scmp_filter_ctx)> context_;
};

constexpr std::uint64_t kAllBits = ~std::uint64_t{0};

}  // namespace

void allowAddressFamilies(const std::vector<std::string>& families) {
  const std::map<std::string, int> known = {{"AF_UNIX", AF_UNIX},
                                            {"AF_INET", AF_INET},
                                            {"AF_INET6", AF_INET6},
                                            {"AF_NETLINK", AF_NETLINK}};
  std::set<int> allowed;
  for (const std::string& name : families) {
    allowed.insert(known.at(name));
  }
  Filter filter(SCMP_ACT_ALLOW);
  for (int family = 0; family < AF_MAX; ++family) {
    if (!allowed.contains(family)) {
      filter.refuse(SCMP_SYS(socket), 0, kAllBits, static_cast<std::uint64_t>(family));
    }
  }
  filter.load();
}

void refuseNamespaces() {
  Filter filter(SCMP_ACT_ALLOW);
  for (const std::uint64_t kind : {CLONE_NEWNS, CLONE_NEWCGROUP, CLONE_NEWUTS, CLONE_NEWIPC,
                                   CLONE_NEWUSER, CLONE_NEWPID, CLONE_NEWNET}) {
    filter.refuse(SCMP_SYS(clone), 0, kind, kind);
  }
  filter.refuse(SCMP_SYS(unshare));
  filter.refuse(SCMP_SYS(setns));
  // A filter cannot see the arguments of this call. Programs fall back to clone.
  filter.fail(SCMP_SYS(clone3), ENOSYS);
  filter.load();
}

void refuseWritableCode() {
  Filter filter(SCMP_ACT_ALLOW);
  filter.refuse(SCMP_SYS(mmap), 2, PROT_WRITE | PROT_EXEC, PROT_WRITE | PROT_EXEC);
  for (const int call : {SCMP_SYS(mprotect), SCMP_SYS(pkey_mprotect)}) {
    filter.refuse(call, 2, PROT_EXEC, PROT_EXEC);
  }
  filter.refuse(SCMP_SYS(shmat), 2, SHM_EXEC, SHM_EXEC);
  filter.load();
}

void refuseSetIdFiles() {
  struct Place {
    int call;
    unsigned argument;
  };
  Filter filter(SCMP_ACT_ALLOW);
  for (const auto& [call, argument] :
       {Place{SCMP_SYS(chmod), 1}, Place{SCMP_SYS(fchmod), 1}, Place{SCMP_SYS(fchmodat), 2},
        Place{SCMP_SYS(mkdir), 1}, Place{SCMP_SYS(mkdirat), 2}, Place{SCMP_SYS(open), 2},
        Place{SCMP_SYS(openat), 3}, Place{SCMP_SYS(creat), 1}}) {
    for (const std::uint64_t bit : {S_ISUID, S_ISGID}) {
      filter.refuse(call, argument, bit, bit);
    }
  }
  filter.load();
}

void refuseRealtime() {
  Filter filter(SCMP_ACT_ALLOW);
  for (const std::uint64_t policy : {SCHED_FIFO, SCHED_RR}) {
    filter.refuse(SCMP_SYS(sched_setscheduler), 1, kAllBits, policy);
  }
  filter.load();
}

void refuseOtherPersonalities() {
  Filter filter(SCMP_ACT_ALLOW);
  filter.refuse(SCMP_SYS(personality), 0, kAllBits, PER_LINUX32);
  filter.load();
}

void allowSystemCalls(const std::set<std::string>& names) {
  Filter filter(SCMP_ACT_KILL_PROCESS);
  for (const std::string& name : names) {
    filter.allow(name);
  }
  filter.load();
}

}  // namespace sorvane::test
