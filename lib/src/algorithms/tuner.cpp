#include "algorithms/tuner.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "algorithms/solve.h"
#include "engine/engine.h"
#include "params/param_table.h"

namespace vlm::algorithms {

namespace {

struct Change {
  int param;
  double value;
};

// How one parameter set did over its trials.
struct Score {
  bool finished = false;
  double time = 0.0;  // mean or worst trial time
  double measure = 0.0;  // TuneCriterion's measure (smaller is better) for unfinished sets
};

struct Candidate {
  std::vector<Change> changes;
  Score score;
};

struct Tuning {
  Model& m;
  ParamSet base;
  bool mip = false;
  int trials = 1, metric = -1, criterion = -1, output = 2;
  double target_gap = 0.0;
  double budget = VLM_INFINITY;  // seconds
  double model_limit = VLM_INFINITY;
  std::chrono::steady_clock::time_point t0 = std::chrono::steady_clock::now();
  double best_finished_time = VLM_INFINITY;

  double elapsed() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(); }
  double left() const { return budget - elapsed(); }
};

// The changes the tuner tries, one parameter at a time, in a fixed order.
std::vector<Change> moves(bool mip) {
  std::vector<std::pair<const char*, std::vector<double>>> list;
  if (mip) {
    list = {{"MIPFocus", {1, 2, 3}}, {"Heuristics", {0.0, 0.2}}, {"Cuts", {0, 2}}, {"Symmetry", {0}},
            {"Presolve", {0}},       {"NodeMethod", {1, 2}},     {"RINS", {0}},     {"HeuFeasJump", {0}}};
  } else {
    list = {{"Method", {0, 1, 2}}, {"Presolve", {0}}, {"ScaleFlag", {0, 2}}, {"SimplexPricing", {1, 2}},
            {"PreDual", {1}}};
  }
  std::vector<Change> out;
  for (const auto& [name, values] : list) {
    for (double v : values) out.push_back({find_param(name), v});
  }
  return out;
}

std::string describe(const std::vector<Change>& changes) {
  if (changes.empty()) return "(baseline)";
  std::string s;
  for (const Change& c : changes) {
    ParamSet tmp;
    const ParamDef& def = param_table()[c.param];
    if (def.type == ParamType::kInt) {
      (void)tmp.set_int(c.param, static_cast<long long>(c.value));
    } else {
      (void)tmp.set_dbl(c.param, c.value);
    }
    s += (s.empty() ? "" : ", ") + std::string(def.name) + " " + tmp.value_text(c.param);
  }
  return s;
}

Status apply(ParamSet& ps, const std::vector<Change>& changes) {
  for (const Change& c : changes) {
    if (param_table()[c.param].type == ParamType::kInt) {
      VLM_RETURN_IF_ERROR(ps.set_int(c.param, static_cast<long long>(c.value)));
    } else {
      VLM_RETURN_IF_ERROR(ps.set_dbl(c.param, c.value));
    }
  }
  return Status::Ok();
}

bool finished_status(int s) {
  return s == VLM_OPTIMAL || s == VLM_INFEASIBLE || s == VLM_UNBOUNDED || s == VLM_INF_OR_UNBD;
}

// Runs the trials of one set on copies of the model. Fails as optimize fails.
StatusOr<Score> evaluate(Tuning& t, const std::vector<Change>& changes) {
  const int seed = find_param("Seed"), tl = find_param("TimeLimit"), out = find_param("OutputFlag");
  ParamSet ps = t.base;
  VLM_RETURN_IF_ERROR(apply(ps, changes));
  if (t.output < 3) VLM_RETURN_IF_ERROR(ps.set_int(out, 0));
  const int sense = t.m.data().sense;
  Score sc;
  sc.finished = true;
  double total = 0.0, worst = 0.0, measure = 0.0;
  for (int k = 0; k < t.trials; ++k) {
    // A trial slower than twice the best finished time cannot win.
    const double cap = std::min({t.model_limit, std::max(0.0, t.left()), 2.0 * t.best_finished_time + 0.01});
    VLM_RETURN_IF_ERROR(ps.set_dbl(tl, cap));
    VLM_RETURN_IF_ERROR(ps.set_int(seed, std::min<long long>(t.base.get_int(seed) + k, VLM_MAXINT)));
    Model copy(t.m);
    copy.env().params() = ps;
    VLM_RETURN_IF_ERROR(optimize(copy));
    const Solution* s = copy.solution();
    const double time = s->runtime;
    total += time;
    worst = std::max(worst, time);
    bool done = finished_status(s->status);
    const bool has_x = s->sol_count > 0;
    if (!done && t.target_gap > 0.0 && has_x && s->is_mip && s->mipgap <= t.target_gap) done = true;
    sc.finished = sc.finished && done;
    // Smaller is better for every measure: objectives and bounds in the minimising sense.
    double v;
    switch (t.criterion) {
      case 2: v = has_x ? sense * s->objval : VLM_INFINITY; break;
      case 3: v = s->is_mip ? -sense * s->objbound : VLM_INFINITY; break;
      case 0: v = 0.0; break;
      default: v = has_x && s->is_mip ? s->mipgap : VLM_INFINITY; break;
    }
    measure = t.metric == 1 ? std::max(measure, v) : measure + v / t.trials;
    if (t.left() <= 0.0) {
      sc.finished = sc.finished && k + 1 == t.trials;
      break;
    }
  }
  sc.time = t.metric == 1 ? worst : total / t.trials;
  sc.measure = measure;
  if (sc.finished) t.best_finished_time = std::min(t.best_finished_time, sc.time);
  return sc;
}

// Whether `a` is better than `b` by a clear margin (10% of the time).
bool improves(const Score& a, const Score& b) {
  if (a.finished != b.finished) return a.finished;
  if (a.finished) return a.time < 0.9 * b.time;
  return a.measure < b.measure;
}

// Ordering for the result list: finished first, then faster, then by measure.
bool ranks_before(const Score& a, const Score& b) {
  if (a.finished != b.finished) return a.finished;
  if (a.finished) return a.time < b.time;
  if (a.measure != b.measure) return a.measure < b.measure;
  return a.time < b.time;
}

void log_set(Tuning& t, const Candidate& c, const char* what) {
  char line[256];
  if (c.score.finished) {
    std::snprintf(line, sizeof line, "Tuning: %s %s: %.3f s", what, describe(c.changes).c_str(), c.score.time);
  } else {
    std::snprintf(line, sizeof line, "Tuning: %s %s: not finished, measure %.6g", what, describe(c.changes).c_str(),
                  c.score.measure);
  }
  t.m.env().message(line);
}

}  // namespace

Status tune(Model& m) {
  VLM_RETURN_IF_ERROR(m.update());
  // The trials run on copies; the model itself is held still meanwhile.
  engine::SolvingScope solving(m);
  const ParamSet& ps = m.env().params();
  Tuning t{m, ps};
  const ModelData& d = m.data();
  t.mip = !d.sos.empty() || !d.genconstrs.empty() ||
          std::any_of(d.vtype.begin(), d.vtype.end(), [](char c) { return c != 'C'; });
  t.trials = ps.int_param("TuneTrials");
  t.metric = ps.int_param("TuneMetric");
  t.criterion = ps.int_param("TuneCriterion");
  t.output = ps.int_param("TuneOutput");
  t.target_gap = ps.dbl_param("TuneTargetMIPGap");
  t.model_limit = ps.dbl_param("TimeLimit");
  const double tune_limit = ps.dbl_param("TuneTimeLimit");
  const double target_time = ps.dbl_param("TuneTargetTime");
  const int keep = ps.int_param("TuneResults");
  if (tune_limit >= 0.0) t.budget = tune_limit;
  if (t.output >= 1) {
    char line[160];
    std::snprintf(line, sizeof line, "Tuning: %s model, %d trial%s per parameter set, time limit %s", t.mip ? "MIP" : "continuous",
                  t.trials, t.trials == 1 ? "" : "s", tune_limit >= 0.0 ? format_double(tune_limit).c_str() : "automatic");
    m.env().message(line);
  }

  Candidate baseline;
  VLM_ASSIGN_OR_RETURN(baseline.score, evaluate(t, {}));
  if (tune_limit < 0.0) t.budget = std::clamp(20.0 * baseline.score.time * t.trials, 2.0, 3600.0);
  if (t.output >= 2) log_set(t, baseline, "tried");

  std::vector<Candidate> tried;
  Candidate best = baseline;
  auto done = [&] { return t.left() <= 0.0 || (best.score.finished && best.score.time < target_time); };
  auto try_set = [&](std::vector<Change> changes) -> Status {
    Candidate c;
    c.changes = std::move(changes);
    VLM_ASSIGN_OR_RETURN(c.score, evaluate(t, c.changes));
    if (t.output >= 2) log_set(t, c, "tried");
    if (improves(c.score, baseline.score) && ranks_before(c.score, best.score)) {
      best = c;
      if (t.output >= 1) log_set(t, c, "improved set");
    }
    tried.push_back(std::move(c));
    return Status::Ok();
  };

  // One change at a time.
  for (const Change& c : moves(t.mip)) {
    if (done()) break;
    if (ps.tune_fixed(c.param) || ps.get_dbl(c.param) == c.value) continue;
    VLM_RETURN_IF_ERROR(try_set({c}));
  }
  // The improving changes combined greedily, best first (one value per parameter).
  std::vector<Candidate> singles;
  for (const Candidate& c : tried) {
    if (improves(c.score, baseline.score)) singles.push_back(c);
  }
  std::stable_sort(singles.begin(), singles.end(),
                   [](const Candidate& a, const Candidate& b) { return ranks_before(a.score, b.score); });
  if (singles.size() >= 2) {
    Candidate current = singles[0];
    for (std::size_t k = 1; k < singles.size() && !done(); ++k) {
      const Change& add = singles[k].changes[0];
      const bool clash = std::any_of(current.changes.begin(), current.changes.end(),
                                     [&](const Change& c) { return c.param == add.param; });
      if (clash) continue;
      std::vector<Change> combined = current.changes;
      combined.push_back(add);
      VLM_RETURN_IF_ERROR(try_set(combined));
      if (improves(tried.back().score, current.score)) current = tried.back();
    }
  }

  // Results: the improving sets, best first; the baseline alone when none improves.
  std::vector<Candidate> improving;
  for (const Candidate& c : tried) {
    if (improves(c.score, baseline.score)) improving.push_back(c);
  }
  std::stable_sort(improving.begin(), improving.end(),
                   [](const Candidate& a, const Candidate& b) { return ranks_before(a.score, b.score); });
  if (improving.empty()) improving.push_back(baseline);
  if (keep >= 0 && static_cast<int>(improving.size()) > keep) improving.resize(keep);
  std::vector<TuneResult> results;
  for (const Candidate& c : improving) {
    TuneResult r{ps, {}};
    VLM_RETURN_IF_ERROR(apply(r.params, c.changes));
    for (const Change& ch : c.changes) r.changed.push_back(ch.param);
    results.push_back(std::move(r));
  }
  if (t.output >= 1) {
    char line[256];
    std::snprintf(line, sizeof line, "Tuning: %zu parameter sets tried in %.2f s; %zu result%s, best %s", tried.size() + 1,
                  t.elapsed(), results.size(), results.size() == 1 ? "" : "s",
                  improving.empty() ? "(none kept)" : describe(improving[0].changes).c_str());
    m.env().message(line);
  }
  m.set_tune_results(std::move(results));
  return Status::Ok();
}

Status load_tune_result(Model& m, int i) {
  const std::vector<TuneResult>* r = m.tune_results();
  if (r == nullptr) {
    return Status(VLM_ERROR_DATA_NOT_AVAILABLE, "No tuning result " + std::to_string(i) + ": no tuning run has completed");
  }
  if (i < 0 || i >= static_cast<int>(r->size())) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Tuning result " + std::to_string(i) + " does not exist (TuneResultCount is " +
                                                    std::to_string(r->size()) + ")");
  }
  return m.env().assign_params((*r)[i].params);
}

}  // namespace vlm::algorithms
