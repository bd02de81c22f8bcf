// Reports of file accesses to a host's hook.
#include "mirt/sys/file_access.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

#include "tests/support/access_recorder.h"
#include "tests/support/new_process.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

static_assert(mirt::file_access_read == 0 && mirt::file_access_change == 1 &&
              mirt::file_access_inspect == 2 && mirt::file_access_flagged == 4);
static_assert(std::is_same_v<std::underlying_type_t<mirt::file_access_t>, int>);
static_assert(std::is_same_v<mirt::file_access_hook,
                             void (*)(const char*, std::size_t, mirt::file_access_t)>);

TEST(record_file_access, tells_the_hook_path_length_and_kind) {
  tests::access_recorder recorder;
  mirt::record_file_access("/a", mirt::file_access_read);
  mirt::record_file_access("", mirt::file_access_change);
  mirt::record_file_access("b", mirt::file_access_inspect);
  mirt::record_file_access("c", mirt::file_access_flagged);
  mirt::record_file_access("d", static_cast<mirt::file_access_t>(77));
  EXPECT_THAT(recorder.seen(),
              ElementsAre(Pair(0, "/a"), Pair(1, ""), Pair(2, "b"), Pair(4, "c"), Pair(77, "d")));
}

TEST(record_file_access, tells_no_more_than_the_characters_of_a_view) {
  tests::access_recorder recorder;
  mirt::record_file_access({"/path/and more", 5}, mirt::file_access_read);
  mirt::record_file_access({"a\0b", 3}, mirt::file_access_read);
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(0, "/path"), Pair(0, std::string("a\0b", 3))));
}

TEST(record_file_access, does_nothing_before_start_up) {
  tests::in_new_process([] {
    EXPECT_TRUE(mirt::x_record_file_access == nullptr || *mirt::x_record_file_access == nullptr);
    EXPECT_NO_THROW(mirt::record_file_access("/a", mirt::file_access_read));
  });
}

TEST(record_file_access, does_nothing_for_a_null_pointer_or_a_null_slot) {
  tests::access_recorder recorder;
  mirt::file_access_hook* const slot = mirt::x_record_file_access;
  mirt::x_record_file_access = nullptr;
  EXPECT_NO_THROW(mirt::record_file_access("/a", mirt::file_access_read));
  mirt::file_access_hook nobody = nullptr;
  mirt::x_record_file_access = &nobody;
  EXPECT_NO_THROW(mirt::record_file_access("/a", mirt::file_access_read));
  mirt::x_record_file_access = slot;
  EXPECT_TRUE(recorder.seen().empty());
}

TEST(record_file_access, sees_what_the_host_puts_into_its_slot_later) {
  tests::access_recorder recorder;
  mirt::file_access_hook* const recording = mirt::x_record_file_access;
  mirt::file_access_hook slot = nullptr;
  mirt::x_record_file_access = &slot;
  mirt::record_file_access("/a", mirt::file_access_read);
  slot = *recording;
  mirt::record_file_access("/b", mirt::file_access_read);
  mirt::x_record_file_access = recording;
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(0, "/b")));
}

TEST(record_file_access, lets_through_what_the_hook_throws) {
  mirt::file_access_hook* const before = mirt::x_record_file_access;
  mirt::file_access_hook refuse = [](const char*, std::size_t, mirt::file_access_t) {
    throw std::runtime_error("refused");
  };
  mirt::x_record_file_access = &refuse;
  EXPECT_THROW(mirt::record_file_access("/a", mirt::file_access_read), std::runtime_error);
  mirt::x_record_file_access = before;
}

}  // namespace
