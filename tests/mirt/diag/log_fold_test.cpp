// mirt/diag/errlog.h: folding of repeated lines, without a writer.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "mirt/diag/errlog.h"

namespace {

struct folded {
  std::size_t step_back;
  std::string out;

  bool operator==(const folded&) const = default;
};

std::ostream& operator<<(std::ostream& out, const folded& f) {
  return out << f.step_back << " '" << f.out.substr(0, 100) << "'";
}

folded fold(const std::string& line, std::size_t header_length) {
  const std::vector<char> unterminated(line.begin(), line.end());
  const char* out = nullptr;
  std::size_t out_length = 0;
  static const char empty = 0;
  const std::size_t step_back = mirt::errlog::update_last_string(
      out, out_length, line.empty() ? &empty : unterminated.data(), line.size(), header_length);
  return {step_back, std::string(out, out_length)};
}

void forget() {
  const char* out = "x";
  std::size_t out_length = 1;
  EXPECT_EQ(mirt::errlog::update_last_string(out, out_length, nullptr, 5, 3), 0U);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(out_length, 0U);
}

class update_last_string : public testing::Test {
 protected:
  void SetUp() override { forget(); }
};

TEST_F(update_last_string, gives_the_first_line_of_a_run_and_then_its_marker) {
  const std::string text = " sixteen bytes..\n";
  EXPECT_EQ(fold("T1" + text, 2), (folded{0, "T1" + text}));
  EXPECT_EQ(fold("T2" + text, 2), (folded{0, "T2 -          1 - \n"}));
  EXPECT_EQ(fold("T3" + text, 2), (folded{19, "T3 -          2 - \n"}));
  EXPECT_EQ(fold("T3" + text, 2), (folded{19, "T3 -          3 - \n"}));
  EXPECT_EQ(fold("T4 another line, too\n", 2), (folded{0, "T4 another line, too\n"}));
  EXPECT_EQ(fold("T4" + text, 2), (folded{0, "T4" + text}));
}

TEST_F(update_last_string, starts_to_count_anew_with_each_run) {
  const std::string text = " sixteen bytes..\n", other = " SIXTEEN BYTES..\n";
  fold("T" + text, 1);
  fold("T" + text, 1);
  fold("T" + text, 1);
  fold("T" + other, 1);
  EXPECT_EQ(fold("T" + other, 1), (folded{0, "T -          1 - \n"}));
}

TEST_F(update_last_string, aligns_the_count_right_in_ten_columns) {
  const std::string line(40, 'x');
  fold(line, 20);
  folded last{};
  for (int i = 0; i < 1234567; ++i) last = fold(line, 20);
  EXPECT_EQ(last, (folded{37, std::string(20, 'x') + " -    1234567 - \n"}));
}

TEST_F(update_last_string, folds_lines_of_at_least_17_bytes_behind_the_header) {
  for (const std::size_t header_length : {0, 1, 20}) {
    for (const std::size_t behind : {0, 16, 17, 18}) {
      SCOPED_TRACE(behind);
      const std::string line(header_length + behind, 'x');
      forget();
      fold(line, header_length);
      EXPECT_EQ(fold(line, header_length).out == line, behind < 17);
    }
  }
}

TEST_F(update_last_string, compares_what_stands_behind_the_header) {
  const std::string line = "HDR a text of more than 17 bytes\n";
  const struct {
    const char* line;
    std::size_t header_length;
    bool is_repeat;
  } rows[] = {
      {"HDR a text of more than 17 bytes\n", 3, true},
      {"hdr a text of more than 17 bytes\n", 3, true},
      {"HDR a text of more than 17 bytes\n", 4, false},  // another header length
      {"HDR a text of more than 17 bytes\n", 2, false},
      {"HDR a text of more than 17 bytes.\n", 3, false},  // another length
      {"HDR a text of more than 17 byte\n", 3, false},
      {"HDR a text of more than 17 bytes.", 3, false},   // the last byte
      {"HDR_a text of more than 17 bytes\n", 3, false},  // the first byte
      {"N a text of more than 17 bytes\n", 1, false},    // the same text without a time
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    forget();
    fold(line, 3);
    EXPECT_EQ(fold(row.line, row.header_length).out != row.line, row.is_repeat);
  }
}

TEST_F(update_last_string, compares_bytes_not_texts) {
  const std::string zeros(30, '\0'), high(30, '\xff');
  fold(zeros, 3);
  EXPECT_NE(fold(zeros, 3).out, zeros);
  EXPECT_EQ(fold(high, 3).out, high);
  std::string other = zeros;
  other.back() = 1;
  fold(zeros, 3);
  EXPECT_EQ(fold(other, 3).out, other);
}

TEST_F(update_last_string, forgets_the_run_for_a_null_line) {
  const std::string line = "HDR a text of more than 17 bytes\n";
  fold(line, 3);
  fold(line, 3);
  forget();
  EXPECT_EQ(fold(line, 3), (folded{0, line}));
  forget();
  forget();
}

/// The same by the book: whole lines are kept and compared, and the file is a list of lines.
class naive_folder {
 public:
  folded step(const std::string& line, std::size_t header_length) {
    const std::string header = line.substr(0, header_length), text = line.substr(header_length);
    if (is_held_ && header_length == held_header_ && text == held_text_ && text.size() >= 17) {
      ++repeats_;
      const std::string count = std::to_string(repeats_);
      const std::string out =
          header + " - " + std::string(10 - count.size(), ' ') + count + " - \n";
      const std::size_t step_back = repeats_ > 1 ? file_.back().size() : 0;
      if (repeats_ > 1) file_.pop_back();
      file_.push_back(out);
      return {step_back, out};
    }
    is_held_ = true;
    held_header_ = header_length;
    held_text_ = text;
    repeats_ = 0;
    file_.push_back(line);
    return {0, line};
  }

  void forget() { is_held_ = false; }

  std::string file() const {
    std::string all;
    for (const std::string& line : file_) all += line;
    return all;
  }

 private:
  bool is_held_ = false;
  std::size_t held_header_ = 0;
  std::string held_text_;
  unsigned repeats_ = 0;
  std::vector<std::string> file_;
};

TEST_F(update_last_string, agrees_with_a_naive_folder_over_random_lines) {
  std::mt19937 random(20240305);
  const auto below = [&random](std::size_t n) { return random() % n; };
  const std::size_t lengths[] = {0, 1, 15, 16, 17, 18, 30};
  const std::size_t long_lengths[] = {65535, 65536, 65537, 100000};

  naive_folder model;
  std::string file, text;
  std::size_t header_length = 0;
  int repeats = 0;
  for (int i = 0; i < 150'000; ++i) {
    // Mostly the same again; else another text, another header length, or nothing held.
    const std::size_t dice = below(100);
    if (dice == 0) {
      forget();
      model.forget();
    }
    if (dice < 30) {
      const std::size_t length = below(300) == 0 ? long_lengths[below(4)] : lengths[below(7)];
      text.assign(length, static_cast<char>('a' + below(2)));
      if (length != 0 && below(2) == 0) text[below(length)] = 'c';
    }
    if (dice > 85) header_length = below(4) == 0 ? 1 : 20;
    const std::string line = std::string(header_length, static_cast<char>('0' + below(10))) + text;

    const folded expected = model.step(line, header_length);
    const folded got = fold(line, header_length);
    ASSERT_EQ(got, expected) << "step " << i;
    ASSERT_LE(got.step_back, file.size());
    file.resize(file.size() - got.step_back);
    file += got.out;
    if (got.out != line) ++repeats;
  }
  EXPECT_TRUE(file == model.file());
  EXPECT_GT(repeats, 10'000) << "the steps did not exercise folding";
}

}  // namespace
