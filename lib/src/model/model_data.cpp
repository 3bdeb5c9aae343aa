#include "model/model_data.h"

#include <charconv>

namespace vlm {

const std::string NameColumn::operator[](int i) const {
  if (!own_.empty() && !own_[static_cast<std::size_t>(i)].empty()) return own_[static_cast<std::size_t>(i)];
  char buf[16] = {prefix_};
  auto res = std::to_chars(buf + 1, buf + sizeof buf, i);
  return std::string(buf, res.ptr);
}

std::vector<std::string> NameColumn::all() const {
  std::vector<std::string> out;
  out.reserve(n_);
  for (int i = 0; i < size(); ++i) out.push_back((*this)[i]);
  return out;
}

const std::string& NameColumn::given(int i) const {
  static const std::string none;
  return own_.empty() ? none : own_[static_cast<std::size_t>(i)];
}

void NameColumn::materialize() {
  if (own_.empty()) own_.resize(n_);
}

void NameColumn::set(int i, std::string name) {
  if (name.empty() && own_.empty()) return;
  materialize();
  own_[static_cast<std::size_t>(i)] = std::move(name);
}

void NameColumn::push_back(std::string name) {
  if (!name.empty()) {
    materialize();
    own_.push_back(std::move(name));
  } else if (!own_.empty()) {
    own_.emplace_back();
  }
  ++n_;
}

void NameColumn::reserve_named(std::size_t count) { own_.reserve(n_ + count); }

void NameColumn::push_unnamed(std::size_t count) {
  if (!own_.empty()) own_.resize(n_ + count);
  n_ += count;
}

void NameColumn::append(NameColumn& src) {
  if (src.own_.empty()) {
    push_unnamed(src.n_);
  } else {
    materialize();
    own_.insert(own_.end(), std::make_move_iterator(src.own_.begin()), std::make_move_iterator(src.own_.end()));
    n_ += src.n_;
  }
  src.clear();
}

void NameColumn::compact(const std::vector<char>& keep) {
  std::size_t out = 0;
  for (std::size_t k = 0; k < n_; ++k) {
    if (!keep[k]) continue;
    if (!own_.empty() && out != k) own_[out] = std::move(own_[k]);
    ++out;
  }
  n_ = out;
  if (!own_.empty()) own_.resize(out);
}

void NameColumn::clear() {
  n_ = 0;
  own_.clear();
}

bool NameColumn::operator==(const NameColumn& o) const {
  if (n_ != o.n_) return false;
  for (int i = 0; i < size(); ++i) {
    if ((*this)[i] != o[i]) return false;
  }
  return true;
}

const char* gen_type_name(GenType t) {
  static const char* const names[kNumGenTypes] = {
      "MAX", "MIN", "ABS",  "AND",  "OR",  "NORM", "INDICATOR", "PWL", "POLY",
      "EXP", "EXPA", "LOG", "LOGA", "POW", "SIN",  "COS",       "TAN", "LOGISTIC"};
  int i = static_cast<int>(t);
  return i >= 0 && i < kNumGenTypes ? names[i] : "UNKNOWN";
}

int ModelData::count(int kind) const {
  switch (kind) {
    case VLM_KIND_MODEL:
      return 1;
    case VLM_KIND_VAR:
      return num_vars();
    case VLM_KIND_CONSTR:
      return num_constrs();
    case VLM_KIND_SOS:
      return num_sos();
    case VLM_KIND_QCONSTR:
      return num_qconstrs();
    case VLM_KIND_GENCONSTR:
      return num_genconstrs();
    default:
      return 0;
  }
}

}  // namespace vlm
