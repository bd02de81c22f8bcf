// mirt/sys/signals.h: the dispositions, and who gets them.
#include "mirt/sys/signals.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "mirt/init.h"
#include "tests/support/new_process.h"

namespace {

using handler = void (*)(int);

handler disposition(int number) {
  struct sigaction action;
  EXPECT_EQ(::sigaction(number, nullptr, &action), 0);
  return action.sa_handler;
}

/// The status of a child that ends with 7; -1 if it cannot be waited for.
int wait_for_child() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(7);
  int status = -1;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(disable_sigpipe, makes_writing_to_a_pipe_without_a_reader_fail) {
  tests::in_new_process([] {
    mirt::disable_sigpipe();
    EXPECT_EQ(disposition(SIGPIPE), SIG_IGN);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    EXPECT_EQ(::write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
  });
}

TEST(disable_sigchild, installs_a_handler_deliberately_so_that_children_stay_waitable) {
  tests::in_new_process([] {
    ::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(wait_for_child(), -1);
    mirt::disable_sigchild();
    EXPECT_EQ(disposition(SIGCHLD), mirt::sig_chld_ignore_);
    EXPECT_EQ(wait_for_child(), 7);
  });
}

TEST(disable_sigchild, handles_more_than_one_child) {
  tests::in_new_process([] {
    mirt::disable_sigchild();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(wait_for_child(), 7);
    EXPECT_EQ(disposition(SIGCHLD), mirt::sig_chld_ignore_);
  });
}

TEST(sig_chld_ignore, does_nothing) {
  errno = ENOENT;
  mirt::sig_chld_ignore_(SIGCHLD);
  EXPECT_EQ(errno, ENOENT);
}

TEST(start_up, without_a_host_sets_both) {
  tests::in_new_process([] {
    new mirt::init(nullptr);
    EXPECT_EQ(disposition(SIGPIPE), SIG_IGN);
    EXPECT_EQ(disposition(SIGCHLD), mirt::sig_chld_ignore_);
  });
}

TEST(start_up, leaves_a_hosts_dispositions_alone) {
  tests::in_new_process([] {
    const handler own = [](int) {};
    ::signal(SIGPIPE, own);
    ::signal(SIGCHLD, SIG_DFL);
    mirt_api_t table{};
    table.version = 23;
    new mirt::init(&table);
    EXPECT_EQ(disposition(SIGPIPE), own);
    EXPECT_EQ(disposition(SIGCHLD), SIG_DFL);
  });
}

}  // namespace
