// Env: one environment of the library: parameter settings, log sinks and the last error.
//
// An environment is created empty, may be configured, and is then started; models (later) take
// a copy of their environment, so Env is copyable. Parameter writes go through set_param_*,
// which keep the log sinks in step with LogFile.
#pragma once

#include <string>
#include <string_view>

#include "core/error_state.h"
#include "core/log.h"
#include "core/status.h"
#include "params/param_set.h"

namespace vlm {

class Env {
 public:
  Env() = default;

  Status start();
  bool started() const { return started_; }

  ParamSet& params() { return params_; }
  const ParamSet& params() const { return params_; }

  // Typed and textual setters by table index; on failure the old value stays.
  Status set_param_int(int index, long long value);
  Status set_param_dbl(int index, double value);
  Status set_param_str(int index, std::string_view value);
  Status set_param_text(int index, std::string_view text);
  Status reset_params();
  // Replaces all settings at once (a parameter file read into a scratch copy).
  Status assign_params(const ParamSet& params);

  // Writes a message to the log sinks, honouring OutputFlag and LogToConsole.
  void message(std::string_view text);
  LogSinks& log() { return log_; }

  ErrorState& errors() { return errors_; }

  // Sees every message written (after the OutputFlag test) while it is set; a copy of the
  // environment does not inherit it. The callback layer sets one for the length of a solve.
  class MessageTap {
   public:
    virtual ~MessageTap() = default;
    virtual void on_message(std::string_view text) = 0;
  };
  void set_tap(MessageTap* tap) { tap_.p = tap; }

 private:
  struct TapSlot {
    MessageTap* p = nullptr;
    TapSlot() = default;
    TapSlot(const TapSlot&) {}
    TapSlot& operator=(const TapSlot&) { return *this; }
  };

  // Brings the log file in step with the LogFile parameter.
  Status sync_log_file(const ParamSet& params);

  ParamSet params_;
  LogSinks log_;
  ErrorState errors_;
  bool started_ = false;
  TapSlot tap_;
};

}  // namespace vlm
