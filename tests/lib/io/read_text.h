// Reads model text (LP or MPS) as if from a file, into an updated model: the step the reader
// tests share.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "io/file_format.h"
#include "model/model.h"

// `parse` is vlm::io::read_lp or read_mps; `filename` names the text in messages. `status`
// receives the outcome; without it a failure fails the test.
template <class Parse>
std::unique_ptr<vlm::Model> read_model_text(Parse parse, const std::string& text, const char* filename,
                                            vlm::Status* status) {
  static const vlm::Env env;
  vlm::io::ReadModel rm;
  vlm::Status s = parse(text, filename, rm);
  std::unique_ptr<vlm::Model> m;
  if (s.ok()) {
    m = std::make_unique<vlm::Model>(env, rm.data.name);
    s = vlm::io::build_model(rm, filename, *m);
    if (!s.ok()) m.reset();
  }
  if (status != nullptr) {
    *status = s;
  } else {
    EXPECT_TRUE(s.ok()) << s.message();
  }
  return m;
}

// One text a reader must refuse, and the exact message it must give.
struct ReadErrorCase {
  std::string text;
  std::string message;
};

// Each case fails with VLM_ERROR_FILE_READ and its message, and leaves no model.
template <class Read>
void expect_read_errors(Read read_text, std::initializer_list<ReadErrorCase> cases) {
  for (const ReadErrorCase& c : cases) {
    vlm::Status s;
    auto m = read_text(c.text, &s);
    EXPECT_EQ(m, nullptr) << c.text;
    EXPECT_EQ(s.code(), VLM_ERROR_FILE_READ) << c.text;
    EXPECT_EQ(s.message(), c.message) << c.text;
  }
}
