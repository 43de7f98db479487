#include <seccomp.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "receiver/sandbox/sandbox.h"

namespace {

struct FilterRelease {
  void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, FilterRelease>;  // scmp_filter_ctx is a void*

// Names that the library or the processor does not know are left out.
constexpr const char* kDenied[] = {
    // programs
    "execve",
    "execveat",
    "uselib",
    // sockets: the open one is only read
    "socket",
    "socketpair",
    "connect",
    "bind",
    "listen",
    "accept",
    "accept4",
    "sendmsg",
    "sendmmsg",
    // other processes
    "tkill",
    "kcmp",
    "process_vm_readv",
    "process_vm_writev",
    "process_madvise",
    "pidfd_open",
    "pidfd_getfd",
    "pidfd_send_signal",
    "perf_event_open",
    // file systems, and files that landlock does not look at
    "mount",
    "umount",
    "umount2",
    "pivot_root",
    "chroot",
    "move_mount",
    "open_tree",
    "fsopen",
    "fsconfig",
    "fsmount",
    "fspick",
    "mount_setattr",
    "swapon",
    "swapoff",
    "quotactl",
    "quotactl_fd",
    "open_by_handle_at",
    "mknod",
    "mknodat",
    "chown",
    "lchown",
    "fchownat",
    "fchown",
    "chown32",
    "lchown32",
    "fchown32",
    "setxattr",
    "lsetxattr",
    "fsetxattr",
    "removexattr",
    "lremovexattr",
    "fremovexattr",
    // privileges and namespaces
    "setuid",
    "setgid",
    "setreuid",
    "setregid",
    "setresuid",
    "setresgid",
    "setfsuid",
    "setfsgid",
    "setgroups",
    "setuid32",
    "setgid32",
    "setreuid32",
    "setregid32",
    "setresuid32",
    "setresgid32",
    "setfsuid32",
    "setfsgid32",
    "setgroups32",
    "capset",
    "unshare",
    "setns",
    "keyctl",
    "add_key",
    "request_key",
    // wide doors into the kernel
    "bpf",
    "userfaultfd",
    "io_uring_setup",
    "io_uring_enter",
    "io_uring_register",
    "init_module",
    "finit_module",
    "delete_module",
    "kexec_load",
    "kexec_file_load",
    "reboot",
    "acct",
    "syslog",
    "iopl",
    "ioperm",
    "modify_ldt",
    "vm86",
    "settimeofday",
    "stime",
    "clock_settime",
    "clock_settime64",
    "clock_adjtime",
    "clock_adjtime64",
    "adjtimex",
    "sethostname",
    "setdomainname",
    "vhangup",
// LeakSanitizer stops its own process by ptrace(2) and looks at it
#ifndef TARNWICK_LEAK_SANITIZER
    "ptrace",
#endif
};

class Rules {
 public:
  Rules() : filter_(seccomp_init(SCMP_ACT_ALLOW)) { note(filter_ ? 0 : -ENOMEM); }

  void deny(const char* call) {
    if (const int number = seccomp_syscall_resolve_name(call); number != __NR_SCMP_ERROR) {
      note(seccomp_rule_add(filter_.get(), kEperm, number, 0));
    }
  }

  /// Where the call's argument (from 0) is not `value`.
  void deny_unless(const char* call, unsigned argument, std::uint64_t value) {
    deny_where(call, {argument, SCMP_CMP_NE, value, 0});
  }

  /// Where the bits `mask` of the call's argument (from 0) are `value`.
  void deny_bits(const char* call, unsigned argument, std::uint64_t mask, std::uint64_t value) {
    deny_where(call, {argument, SCMP_CMP_MASKED_EQ, mask, value});
  }

  std::string load() {
    // no thread escapes it, should there be some
    note(error_ < 0 ? 0 : seccomp_attr_set(filter_.get(), SCMP_FLTATR_CTL_TSYNC, 1));
    if (error_ == 0) note(seccomp_load(filter_.get()));
    return error_ == 0 ? "" : std::strerror(-error_);
  }

  bool is_good() const { return error_ == 0; }

 private:
  static constexpr std::uint32_t kEperm = SCMP_ACT_ERRNO(EPERM);

  void deny_where(const char* call, const scmp_arg_cmp& holds) {
    if (const int number = seccomp_syscall_resolve_name(call); number != __NR_SCMP_ERROR) {
      note(seccomp_rule_add_array(filter_.get(), kEperm, number, 1, &holds));
    }
  }

  void note(int result) {
    if (result < 0 && error_ == 0) error_ = result;
  }

  int error_ = 0;  ///< negative errno of the first failure
  Filter filter_;
};

void deny_by_argument(Rules& rules) {
  const auto own = static_cast<std::uint64_t>(getpid());
  for (const char* call : {"kill", "tgkill", "rt_sigqueueinfo", "rt_tgsigqueueinfo"})
    rules.deny_unless(call, 0, own);
  rules.deny_unless("prlimit64", 0, 0);
  rules.deny_unless("sendto", 4, 0);                          // with an address
  for (const std::uint64_t bit : {04000U, 02000U, 01000U}) {  // inode(7): setuid, setgid, sticky
    for (const char* call : {"chmod", "fchmod"}) rules.deny_bits(call, 1, bit, bit);
    for (const char* call : {"fchmodat", "fchmodat2"}) rules.deny_bits(call, 2, bit, bit);
  }
  // a terminal is not typed into: ioctl_tty(2)
  rules.deny_bits("ioctl", 1, 0xFFFFFFFFU, TIOCSTI);
  rules.deny_bits("ioctl", 1, 0xFFFFFFFFU, TIOCLINUX);
}

}  // namespace

std::string restrict_calls() {
  Rules rules;
  if (rules.is_good()) {
    for (const char* call : kDenied) rules.deny(call);
    deny_by_argument(rules);
  }
  const std::string error = rules.load();
  return error.empty() ? "" : "system calls are not restricted (seccomp: " + error + ")";
}
