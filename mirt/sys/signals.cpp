#include "mirt/sys/signals.h"

#include <signal.h>

namespace mirt {

void disable_sigpipe() {
  ::signal(SIGPIPE, SIG_IGN);
}

void disable_sigchild() {
  ::signal(SIGCHLD, sig_chld_ignore_);
}

void sig_chld_ignore_(int) {}

}  // namespace mirt
