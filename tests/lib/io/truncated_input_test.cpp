// Files cut short are refused with the file name and the line where they stop, never read as
// a smaller model: LP without End, MPS without ENDATA, a line or section cut in the middle, and
// gzip streams cut anywhere (including only the trailer).
//
// Not tested here: malformed content inside a complete file (lp_reader_test.cpp,
// mps_reader_test.cpp).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "io/file_format.h"
#include "io/lp_reader.h"
#include "io/mps_reader.h"
#include "read_text.h"

namespace {

using vlm::Status;

std::unique_ptr<vlm::Model> read_lp(const std::string& text, Status* s) {
  return read_model_text(vlm::io::read_lp, text, "m.lp", s);
}
std::unique_ptr<vlm::Model> read_mps(const std::string& text, Status* s) {
  return read_model_text(vlm::io::read_mps, text, "m.mps", s);
}

// A model with every section the writers emit for a MIP: objective, rows, bounds, integers.
const char* const kLp =
    "\\ Model: cut\n"
    "Maximize\n"
    " obj: 3 x + 2 y\n"
    "Subject To\n"
    " c1: x + y <= 4\n"
    " c2: x + 3 y <= 6\n"
    "Bounds\n"
    " x <= 3\n"
    "Generals\n"
    " y\n"
    "End\n";

const char* const kMps =
    "NAME cut\n"
    "OBJSENSE\n"
    "    MAX\n"
    "ROWS\n"
    " N  obj\n"
    " L  c1\n"
    " L  c2\n"
    "COLUMNS\n"
    "    x  obj  3  c1  1\n"
    "    x  c2  1\n"
    "    MARKER  'MARKER'  'INTORG'\n"
    "    y  obj  2  c1  1\n"
    "    y  c2  3\n"
    "    MARKER  'MARKER'  'INTEND'\n"
    "RHS\n"
    "    RHS  c1  4  c2  6\n"
    "BOUNDS\n"
    " UP BND  x  3\n"
    "ENDATA\n";

TEST(TruncatedInputTest, MissingEndOrEndataNamesTheLastLine) {
  expect_read_errors(read_lp, {{"Minimize\n obj: x\nSubject To\n c: x >= 1\n\n\n",
                                "File 'm.lp', line 4: expected 'End' after this line, found the end "
                                "of the file (is the file cut short?)"}});
  expect_read_errors(read_mps, {{"NAME m\nROWS\n N obj\nCOLUMNS\n    x  obj  1\n* comment\n",
                                 "File 'm.mps', line 5: expected 'ENDATA' after this line, found the "
                                 "end of the file (is the file cut short?)"}});
}

TEST(TruncatedInputTest, LinesCutInTheMiddleAreErrors) {
  expect_read_errors(read_lp, {{"Maximize\n obj: 3 x + 2 y\nSubject To\n c1: x + y <",
                                "File 'm.lp', line 4: expected a right-hand side after 'x + y <', "
                                "found the end of the Subject To section"},
                               {"Maximize\n obj: 3 x + 2 y\nSubject To\n c1: x + y <= 4\n c2: x +",
                                "File 'm.lp', line 5: expected a term after '+' or '-', found the "
                                "end of the Subject To section"}});
  expect_read_errors(read_mps, {{"NAME m\nROWS\n N obj\n L c1\nCOLUMNS\n    x  obj  3  c1",
                                 "File 'm.mps', line 6: expected 'column row value [row value]', found 'x  obj  3  c1'"}});
}

// Every proper prefix of a complete file that ends at a line break is refused: dropping the
// tail of a file can never give a model. The complete files read (as a control).
TEST(TruncatedInputTest, EveryPrefixByLinesIsRefused) {
  for (auto [text, reader] : {std::pair{std::string(kLp), &read_lp}, std::pair{std::string(kMps), &read_mps}}) {
    Status s;
    ASSERT_NE(reader(text, &s), nullptr) << s.message();
    std::size_t cut = text.find('\n');
    int lines = 1;
    while (cut + 1 < text.size()) {
      const std::string prefix = text.substr(0, cut + 1);
      auto m = reader(prefix, &s);
      EXPECT_EQ(m, nullptr) << prefix;
      EXPECT_EQ(s.code(), VLM_ERROR_FILE_READ) << prefix;
      EXPECT_NE(s.message().find("line " + std::to_string(lines)), std::string::npos) << s.message();
      cut = text.find('\n', cut + 1);
      ++lines;
    }
  }
}

// A gzip file cut anywhere, even only in its 8-byte trailer (whole text decompressed, checksum
// missing), is refused with the line reached; the complete file reads.
TEST(TruncatedInputTest, CutGzipStreamsAreRefused) {
  const std::string path = ::testing::TempDir() + "velmor_truncated.lp.gz";
  ASSERT_TRUE(vlm::io::write_file(path, kLp).ok());
  std::string bytes;
  {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    bytes = s.str();
  }
  static const vlm::Env env;
  ASSERT_TRUE(vlm::io::read_model_file(env, path).ok());
  for (std::size_t keep : {bytes.size() - 1, bytes.size() - 8, bytes.size() / 2, std::size_t{12}}) {
    { std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes.substr(0, keep); }
    auto m = vlm::io::read_model_file(env, path);
    ASSERT_FALSE(m.ok()) << keep;
    EXPECT_EQ(m.status().code(), VLM_ERROR_FILE_READ);
    const std::string& msg = m.status().message();
    EXPECT_EQ(msg.rfind("File '" + path + "', line ", 0), 0u) << msg;
    EXPECT_NE(msg.find(": compressed data is cut short or damaged (unexpected end of file)"),
              std::string::npos)
        << msg;
  }
  // With only the trailer missing every line came through: the error names the line after them.
  { std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes.substr(0, bytes.size() - 8); }
  EXPECT_EQ(vlm::io::read_model_file(env, path).status().message(),
            "File '" + path + "', line 12: compressed data is cut short or damaged (unexpected end of file)");
  std::filesystem::remove(path);
}

}  // namespace
