// Whole files in one call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mirt/sys/xfile.h"
#include "tests/support/access_recorder.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using tests::error_of;

TEST(get_file, reads_files_of_every_size_and_any_bytes) {
  for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 131071U, 131072U, 131073U}) {
    SCOPED_TRACE(size);
    const tests::scratch_dir dir;
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 256);
    tests::make_file(dir / "f", content);
    std::string out = "from before";
    mirt::get_file(out, dir / "f");
    EXPECT_TRUE(out == content) << out.size() << " bytes";
  }
}

TEST(get_file, empties_the_text_even_when_the_file_cannot_be_opened) {
  std::string out = "from before";
  EXPECT_EQ(error_of([&] { mirt::get_file(out, "/nowhere/f"); }),
            "2 (No such file or directory) function=fopen file=/nowhere/f");
  EXPECT_EQ(out, "");
}

TEST(get_file, reads_nothing_from_a_directory) {
  const tests::scratch_dir dir;
  std::string out = "from before";
  EXPECT_EQ(error_of([&] { mirt::get_file(out, dir.path()); }), "no exception");
  EXPECT_EQ(out, "");
}

TEST(get_file, is_reported_as_one_reading) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", "x");
  const tests::access_recorder recorder;
  std::string out;
  mirt::get_file(out, dir / "f");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(0, dir / "f")));
}

TEST(put_file, replaces_all_of_the_content) {
  const tests::scratch_dir dir;
  for (const std::string& content : {std::string("a longer text"), std::string("\0\r\n\xff", 4),
                                     std::string(), std::string(300000, 'x')}) {
    mirt::put_file(dir / "f", content);
    EXPECT_TRUE(tests::content(dir / "f") == content) << content.size();
  }
}

TEST(put_file, writes_no_more_than_the_characters_of_a_view) {
  const tests::scratch_dir dir;
  mirt::put_file(dir / "f", {"true, and more", 4});
  EXPECT_EQ(tests::content(dir / "f"), "true");
}

TEST(put_file, replaces_what_a_link_leads_to_and_keeps_the_link) {
  const tests::scratch_dir dir;
  ASSERT_EQ(::symlink("target", (dir / "link").c_str()), 0);
  mirt::put_file(dir / "link", "x");
  EXPECT_EQ(tests::tree(dir.path()),
            (std::map<std::string, std::string>{{"link", "-> target"}, {"target", "x"}}));
}

TEST(put_file, throws_when_the_file_cannot_be_opened) {
  const tests::scratch_dir dir;
  EXPECT_EQ(error_of([&] { mirt::put_file(dir / "no/f", "x"); }),
            "2 (No such file or directory) function=fopen file=" + (dir / "no/f"));
  EXPECT_EQ(error_of([&] { mirt::put_file(dir.path(), "x"); }),
            "21 (Is a directory) function=fopen file=" + dir.path());
}

TEST(put_file, throws_when_the_disk_is_full) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full on this system";
  EXPECT_EQ(error_of([] { mirt::put_file("/dev/full", "x"); }),
            "28 (No space left on device) function=fclose file=/dev/full");
  EXPECT_EQ(error_of([] { mirt::put_file("/dev/full", std::string(1 << 20, 'x')); }),
            "28 (No space left on device) function=fwrite file=/dev/full");
}

TEST(put_file, is_reported_as_one_change) {
  const tests::scratch_dir dir;
  const tests::access_recorder recorder;
  mirt::put_file(dir / "f", "x");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(1, dir / "f")));
}

}  // namespace
