#include "softlib/privileges.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

void drop_network_admin() {
  constexpr unsigned kNetAdmin = CAP_TO_MASK(CAP_NET_ADMIN);
  static_assert(CAP_NET_ADMIN < 32, "lies in the first of the two words");
  (void)prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  (void)prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN, 0, 0, 0);
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};  // 0: this process
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, sets) != 0) return;
  sets[0].effective &= ~kNetAdmin;
  sets[0].permitted &= ~kNetAdmin;
  sets[0].inheritable &= ~kNetAdmin;
  (void)syscall(SYS_capset, &header, sets);  // the ambient set follows, capabilities(7)
}
