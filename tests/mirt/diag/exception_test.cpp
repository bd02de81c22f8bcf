// mirt/diag/exception.h: every message letter by letter, the life of the pending text, the layout.
#include "mirt/diag/exception.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <type_traits>
#include <utility>

#include "tests/support/allocations.h"
#include "tests/support/hostile_locale.h"
#include "tests/support/slots.h"

namespace {

using mirt::exception;

static_assert(std::is_convertible_v<exception*, std::exception*>);
static_assert(std::has_virtual_destructor_v<exception>);
static_assert(noexcept(std::declval<const exception&>().what()));
static_assert(sizeof(exception) == sizeof(std::exception) + sizeof(std::string) + sizeof(void*));

const std::string no_entry = "2, " + std::string(std::strerror(ENOENT));

/// The exception's fields, read from where hosts expect them.
const std::string& message_field(const exception& e) {
  return *reinterpret_cast<const std::string*>(reinterpret_cast<const char*>(&e) + sizeof(void*));
}

const void* extra_field(const exception& e) {
  const void* extra;
  std::memcpy(&extra, reinterpret_cast<const char*>(&e) + sizeof(void*) + sizeof(std::string),
              sizeof extra);
  return extra;
}

/// What `make` gives when errno is `number` just before it is called.
template <class Make>
std::string told(int number, Make make) {
  errno = number;
  return make();
}

TEST(exception, is_a_lone_colon_by_default) {
  EXPECT_STREQ(exception().what(), ":");
}

TEST(exception, keeps_a_given_text_as_it_is) {
  EXPECT_STREQ(exception("mirt-rpt already initialized").what(), "mirt-rpt already initialized");
  EXPECT_STREQ(exception("").what(), "");
}

TEST(exception, ends_with_what_was_streamed) {
  exception e("abc");
  e.stream() << "def";
  e.stream() << 7;
  EXPECT_STREQ(e.what(), "abcdef7");
  EXPECT_STREQ(e.what(), "abcdef7");
}

TEST(exception, extends_the_colon_with_what_was_streamed) {
  exception e;
  e.stream() << "2 (No such file or directory)";
  EXPECT_EQ(e.description(), ":2 (No such file or directory)");
}

TEST(exception, has_one_stream_until_the_text_is_asked_for_and_then_a_new_one) {
  exception e("a");
  std::ostream* stream = &e.stream();
  *stream << "b";
  EXPECT_EQ(&e.stream(), stream);
  EXPECT_STREQ(e.what(), "ab");
  EXPECT_EQ(e.stream().tellp(), 0);
  e.stream() << "c";
  EXPECT_STREQ(e.what(), "abc");
}

TEST(exception, streams_into_a_string_stream_for_input_and_output) {
  exception e("a");
  auto& stream = dynamic_cast<std::stringstream&>(e.stream());
  stream << "b c";
  std::string word;
  stream >> word;
  EXPECT_EQ(word, "b");
  EXPECT_STREQ(e.what(), "ab c");  // reading takes nothing away
}

TEST(exception, tells_its_text_when_it_is_constant) {
  exception e("a");
  e.stream() << "b";
  const exception& constant = e;
  EXPECT_EQ(constant.description(), "ab");
  EXPECT_EQ(constant.what(), constant.description().c_str());
}

TEST(exception, holds_a_message_and_then_the_pending_stream) {
  exception e("abc");
  EXPECT_EQ(message_field(e), "abc");
  EXPECT_EQ(extra_field(e), nullptr);
  e.stream() << "def";
  EXPECT_EQ(message_field(e), "abc");
  EXPECT_EQ(extra_field(e), dynamic_cast<std::stringstream*>(&e.stream()));
  e.description();
  EXPECT_EQ(message_field(e), "abcdef");
  EXPECT_EQ(extra_field(e), nullptr);
}

TEST(exception, copies_its_full_text_and_keeps_it) {
  exception e("abc");
  e.stream() << "def";
  const exception copy(e);
  EXPECT_EQ(extra_field(e), nullptr);
  EXPECT_EQ(extra_field(copy), nullptr);
  EXPECT_STREQ(copy.what(), "abcdef");
  EXPECT_STREQ(e.what(), "abcdef");
}

TEST(exception, goes_its_own_way_after_it_was_copied) {
  exception e("abc");
  exception copy(e);
  e.stream() << "d";
  copy.stream() << "e";
  EXPECT_STREQ(e.what(), "abcd");
  EXPECT_STREQ(copy.what(), "abce");
}

TEST(exception, is_thrown_by_value_with_its_pending_text) {
  try {
    exception e("a");
    e.stream() << "b";
    throw e;
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "ab");
  }
}

TEST(exception, has_its_destructors_and_what_in_the_first_three_slots) {
  const tests::allocation_count count;
  alignas(exception) unsigned char memory[sizeof(exception)];
  exception* placed = new (memory) exception("a text that does not fit inline");
  placed->stream() << "pending";
  tests::call_slot<void>(placed, 0);
  EXPECT_EQ(count.live(), 0);

  exception* made = new exception("abc");
  EXPECT_STREQ(tests::call_slot<const char*>(made, 2), "abc");
  tests::call_slot<void>(made, 1);
  EXPECT_EQ(count.live(), 0);
}

TEST(exception, lets_memory_exhaustion_out_of_description_without_a_leak) {
  const auto tell = [] {
    exception e("a text that does not fit inline");
    e.stream() << "and another one that is longer still";
    e.description();
  };
  EXPECT_GT(tests::exhaust(tell), 2);
}

TEST(exception, ends_the_process_when_what_runs_out_of_memory) {
  exception e("a text that does not fit inline");
  e.stream() << "and another one that is longer still";
  const auto ask = [&] {
    std::set_terminate([] {
      std::fputs("terminated\n", stderr);
      std::_Exit(3);
    });
    const tests::failing_allocations failing(0);
    e.what();
  };
  EXPECT_EXIT(ask(), testing::ExitedWithCode(3), "terminated");
}

TEST(exception_function, names_the_operation_that_failed) {
  EXPECT_STREQ(exception::function("rec_mutex").what(), ":Error in 'rec_mutex'");
  EXPECT_STREQ(exception::function("").what(), ":Error in ''");
}

TEST(exception_function, leaves_the_stream_open_for_more) {
  exception e = exception::function("load");
  e.stream() << ": more";
  EXPECT_STREQ(e.what(), ":Error in 'load': more");
}

TEST(exception_system_error, tells_the_call_the_caller_and_errno) {
  const auto make = [] {
    return exception::system_error("create_directory", "mkdir").description();
  };
  EXPECT_EQ(told(ENOENT, make), ":Error from 'mkdir' (called in 'create_directory'): " + no_entry);
}

TEST(exception_system_error, leaves_out_a_null_or_empty_caller) {
  for (const char* caller : {static_cast<const char*>(nullptr), ""}) {
    const auto make = [caller] { return exception::system_error(caller, "mkdir").description(); };
    const auto make_context = [caller] {
      return exception::system_error_context(caller, "mkdir", "/x").description();
    };
    EXPECT_EQ(told(ENOENT, make), ":Error from 'mkdir': " + no_entry);
    EXPECT_EQ(told(ENOENT, make_context), ":Error from 'mkdir': [/x] " + no_entry);
    EXPECT_STREQ(exception::system_error(caller, "mkdir", "why").what(),
                 ":Error from 'mkdir': why");
  }
}

TEST(exception_system_error, takes_a_detail_instead_of_errno) {
  errno = ENOENT;
  EXPECT_STREQ(exception::system_error("f", "call", "detail").what(),
               ":Error from 'call' (called in 'f'): detail");
  EXPECT_STREQ(exception::system_error("f", "call", "").what(),
               ":Error from 'call' (called in 'f'): ");
}

TEST(exception_system_error, puts_the_context_in_brackets_before_the_number) {
  for (const std::string context : {"/tmp/x", "", "a context that does not fit inline"}) {
    const auto make = [&] {
      return exception::system_error_context("delete_file", "unlink", context).description();
    };
    EXPECT_EQ(told(ENOENT, make),
              ":Error from 'unlink' (called in 'delete_file'): [" + context + "] " + no_entry);
  }
}

TEST(exception_system_error, tells_errno_as_it_was_when_asked) {
  const std::string context = "a context that does not fit inline";
  const auto make = [] { return exception::system_error("f", "call").description(); };
  const auto make_context = [&] {
    return exception::system_error_context("f", "call", context).description();
  };
  const tests::errno_spoiling_allocations spoiling(EDOM);
  EXPECT_EQ(told(ENOENT, make), ":Error from 'call' (called in 'f'): " + no_entry);
  EXPECT_EQ(told(ENOENT, make_context),
            ":Error from 'call' (called in 'f'): [" + context + "] " + no_entry);
}

TEST(exception_system_error, writes_numbers_plainly_in_any_locale) {
  const tests::hostile_locale hostile;
  const std::string unknown = mirt::safe_strerror(1234567);
  EXPECT_EQ(told(1234567, [] { return exception::system_error("f", "call").description(); }),
            ":Error from 'call' (called in 'f'): 1234567, " + unknown);
  EXPECT_EQ(
      told(1234567, [] { return exception::system_error_context("", "call", "/x").description(); }),
      ":Error from 'call': [/x] 1234567, " + unknown);
  EXPECT_EQ(told(-1234567, [] { return exception::system_error_exception_string(nullptr); }),
            "-1234567, " + mirt::safe_strerror(-1234567));
}

TEST(exception_system_error_exception_string, has_a_context_only_when_given_one) {
  const std::string context = "/x", empty;
  const auto make = [](const std::string* given) {
    return told(ENOENT, [given] { return exception::system_error_exception_string(given); });
  };
  EXPECT_EQ(make(nullptr), no_entry);
  EXPECT_EQ(make(&context), "[/x] " + no_entry);
  EXPECT_EQ(make(&empty), "[] " + no_entry);
}

TEST(safe_strerror, is_the_systems_own_text_also_for_unknown_numbers) {
  for (const int err : {0, ENOENT, EACCES, ENOTEMPTY, 12345, -1, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(mirt::safe_strerror(err), std::string(std::strerror(err))) << err;
  }
}

TEST(system_error_string, is_the_text_of_errno) {
  for (const int err : {EACCES, ENOENT}) {
    EXPECT_EQ(told(err, mirt::system_error_string), std::string(std::strerror(err)));
  }
}

}  // namespace
