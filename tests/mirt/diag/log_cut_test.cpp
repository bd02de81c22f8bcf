// mirt/diag/errlog.h: the cut of a log file in place, without a writer.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>
#include <string>

#include "mirt/diag/errlog.h"
#include "mirt/sys/xfile.h"
#include "tests/support/access_recorder.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using mirt::xfile;

constexpr std::size_t piece = 65536;

/// Bytes that tell where they stand.
std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>((i * 2654435761U) >> 13 ^ i >> 16);
  }
  return bytes;
}

/// What stands in a file of such bytes after the cut, the file's position at `position`.
std::string cut(const std::string& bytes, std::size_t position, std::size_t limit) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "x", bytes);
  errlog::set_log_cut_size(limit);
  {
    xfile file(dir / "x", xfile::mode_update_create, false, 4);
    std::fseek(file, static_cast<long>(position), SEEK_SET);
    errlog::check_log_cut(&file);
    EXPECT_TRUE(static_cast<bool>(file)) << "it stays open";
  }
  return tests::content(dir / "x");
}

std::string cut(const std::string& bytes, std::size_t limit) {
  return cut(bytes, bytes.size(), limit);
}

/// By what it is for: of the newer half, all pieces but the one that completes it; all there is
/// where the file has less.
std::string model(const std::string& bytes, std::size_t position, std::size_t limit) {
  if (position <= limit) return bytes;
  const std::size_t half = limit / 2, from = std::min(position - half, bytes.size());
  const std::size_t found = bytes.size() - from;
  const std::size_t kept = found < half ? found : half == 0 ? 0 : (half - 1) / piece * piece;
  return bytes.substr(from, kept);
}

TEST(check_log_cut, keeps_the_newer_half_less_its_last_piece_deliberately) {
  const std::string bytes = pattern(300'000);
  EXPECT_TRUE(cut(bytes, 200'000) == bytes.substr(200'000, 65536));
}

TEST(check_log_cut, leaves_a_file_of_the_size_alone) {
  const std::string bytes = pattern(200'000);
  EXPECT_TRUE(cut(bytes, 200'000) == bytes);
  EXPECT_TRUE(cut(bytes, 200'001) == bytes);
  EXPECT_EQ(cut(bytes, 199'999).size(), piece);
}

TEST(check_log_cut, compares_unsigned) {
  EXPECT_EQ(cut("some bytes", std::numeric_limits<std::size_t>::max()), "some bytes");
}

TEST(check_log_cut, empties_the_file_where_half_the_size_is_at_most_one_piece) {
  for (const std::size_t limit : {1UL, 2UL, 3UL, 1000UL, 2 * piece - 1, 2 * piece, 2 * piece + 1}) {
    EXPECT_EQ(cut(pattern(200'000), limit).size(), 0U) << limit;
  }
  EXPECT_EQ(cut(pattern(200'000), 2 * piece + 2).size(), piece);
}

TEST(check_log_cut, copies_whole_pieces) {
  const std::string bytes = pattern(900'000);
  for (const std::size_t pieces : {1, 2, 3}) {
    for (const std::size_t more : {0, 1, 2}) {
      const std::size_t half = pieces * piece + more;
      const std::size_t kept = (more == 0 ? pieces - 1 : pieces) * piece;
      EXPECT_TRUE(cut(bytes, 2 * half) == bytes.substr(900'000 - half, kept)) << half;
      EXPECT_TRUE(cut(bytes, 2 * half + 1) == bytes.substr(900'000 - half, kept)) << half;
    }
  }
}

TEST(check_log_cut, of_a_file_far_above_the_limit_keeps_its_end) {
  const std::string bytes = pattern(30'000'000);
  EXPECT_TRUE(cut(bytes, 300'000) == bytes.substr(30'000'000 - 150'000, 2 * piece));
  EXPECT_EQ(cut(bytes, 1), "");
}

TEST(check_log_cut, keeps_all_that_a_reader_finds_if_that_is_less) {
  const std::string bytes = pattern(250'000);
  EXPECT_TRUE(cut(bytes, 300'000, 200'000) == bytes.substr(200'000));
  EXPECT_EQ(cut(bytes, 350'000, 200'000), "");  // it finds nothing
  EXPECT_EQ(cut(bytes, 900'000, 200'000), "");
}

TEST(check_log_cut, goes_by_the_position) {
  const std::string bytes = pattern(300'000);
  EXPECT_TRUE(cut(bytes, 0, 200'000) == bytes);
  EXPECT_TRUE(cut(bytes, 200'000, 200'000) == bytes);
  EXPECT_TRUE(cut(bytes, 200'001, 200'000) == bytes.substr(100'001, piece));
}

TEST(check_log_cut, agrees_with_a_model_for_random_sizes) {
  std::mt19937 random(11);
  const std::string all = pattern(1'500'000);
  int cuts = 0;
  for (int round = 0; round < 800; ++round) {
    const std::size_t limit = random() % 3 == 0 ? 2 * piece * (1 + random() % 4) + random() % 7 - 3
                                                : 1 + random() % 900'000;
    const std::size_t size = random() % 3 == 0 ? limit + random() % 5 : random() % all.size();
    const std::string bytes = all.substr(0, std::min(size, all.size()));
    const std::size_t position =
        random() % 4 == 0 ? bytes.size() + random() % 300'000 : bytes.size();
    const std::string expected = model(bytes, position, limit);
    ASSERT_TRUE(cut(bytes, position, limit) == expected)
        << "size " << bytes.size() << " position " << position << " limit " << limit;
    if (expected.size() != bytes.size()) ++cuts;
  }
  EXPECT_GT(cuts, 100);
}

TEST(check_log_cut, leaves_nothing_in_the_stream_that_comes_back_later) {
  const tests::scratch_dir dir;
  const std::string bytes = pattern(300'000);
  errlog::set_log_cut_size(200'000);
  {
    xfile file(dir / "x", xfile::mode_update_create, false, 4);
    file.write(bytes.data(), bytes.size());  // its end is still in the stream
    errlog::check_log_cut(&file);
    struct stat status;
    ASSERT_EQ(::fstat(::fileno(file), &status), 0);
    EXPECT_EQ(status.st_size, 65536);
  }
  EXPECT_TRUE(tests::content(dir / "x") == bytes.substr(200'000, piece));
}

TEST(check_log_cut, reads_through_a_second_file_reported_as_kind_4) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "x", "some bytes");
  xfile file(dir / "x", xfile::mode_update_create, false, 4);
  std::fseek(file, 0, SEEK_END);
  errlog::set_log_cut_size(1);
  const tests::access_recorder recorder;
  errlog::check_log_cut(&file);
  EXPECT_EQ(recorder.seen(), (std::vector<tests::access_recorder::access>{{4, dir / "x"}}));
}

TEST(check_log_cut, leaves_the_file_alone_when_its_path_leads_nowhere) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "x", "some bytes");
  errlog::set_log_cut_size(1);
  xfile file(dir / "x", xfile::mode_update_create, false, 4);
  std::fseek(file, 0, SEEK_END);
  fs::rename(dir / "x", dir / "elsewhere");
  errlog::check_log_cut(&file);
  file.close();
  EXPECT_EQ(tests::content(dir / "elsewhere"), "some bytes");
}

TEST(check_log_cut, copies_what_now_stands_at_the_path) {
  const tests::scratch_dir dir;
  const std::string bytes = pattern(300'000), other = pattern(70'000);
  tests::make_file(dir / "x", bytes);
  errlog::set_log_cut_size(290'000);
  xfile file(dir / "x", xfile::mode_update_create, false, 4);
  std::fseek(file, 0, SEEK_END);
  fs::rename(dir / "x", dir / "elsewhere");
  tests::make_file(dir / "x", other);
  errlog::check_log_cut(&file);  // would read from 155000 on
  file.close();
  EXPECT_EQ(tests::content(dir / "elsewhere"), "");
  EXPECT_TRUE(tests::content(dir / "x") == other);
}

TEST(check_log_cut, swallows_failures) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "the system has no full device";
  const tests::scratch_dir dir;
  fs::create_symlink("/dev/full", dir / "x");
  errlog::set_log_cut_size(2);
  xfile file(dir / "x", xfile::mode_update, true, 4);
  file.write("some bytes", 10);
  EXPECT_NO_THROW(errlog::check_log_cut(&file));
  EXPECT_NO_THROW(errlog::check_log_cut(&file));
}

}  // namespace
