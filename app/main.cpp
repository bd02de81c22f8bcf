// store_product_flags: applies a settings string to the machine-wide product flags.
//
// It runs with administrator rights on behalf of an ordinary user, and what it inherits comes from
// that user. The argument is checked as a whole before anything is applied; what else would change
// which files are opened, who may write what it makes, or where it stops is taken back first.
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "flag/elevated.h"
#include "mirt/init.h"
#include "mirt/sys/immortal.h"

namespace {

void take_back_what_the_caller_set() {
  ::unsetenv("TZ");             // may name a file, which reading the time zone would open
  ::umask(::umask(022) | 022);  // what it makes is for no one else to write
  ::signal(SIGXFSZ, SIG_IGN);   // a size limit fails a write instead of ending the tool midway
}

}  // namespace

int main(int argc, const char** argv) {
  if (argc < 2) return 1;
  try {
    take_back_what_the_caller_set();
    mirt::immortal<mirt::init>(nullptr);
    flag::store_elevated(argv[1]);
    return 0;
  } catch (...) {
    return 1;  // the caller is told by the status alone
  }
}
