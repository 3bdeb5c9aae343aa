// Reads model text (LP or MPS) as if from a file, into an updated model: the step the reader
// tests share.
#pragma once

#include <gtest/gtest.h>

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
