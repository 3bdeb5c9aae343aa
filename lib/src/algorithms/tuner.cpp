#include "algorithms/tuner.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "algorithms/parallel_runs.h"
#include "algorithms/solve.h"
#include "engine/engine.h"
#include "engine/sigint.h"
#include "engine/solver_threads.h"
#include "engine/stop_flag.h"
#include "io/prm_file.h"
#include "params/param_table.h"

namespace vlm::algorithms {

namespace {

// Trials running at once at most (each holds a copy of the model).
constexpr int kMaxTuneJobs = 32;

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
  int jobs = 1;           // trials run at the same time
  int trial_threads = 0;  // Threads of each trial when several run at once (0: the model's)
  std::atomic<bool>* stop = nullptr;  // raised by terminate: the tuning run ends

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

// Runs the trials of `sets` on copies of the model, `jobs` at a time, and scores each set; a
// set some trial of which did not run to its end (terminate, or the tuning time ran out before
// it started) gets no score. Fails as optimize fails on a trial.
StatusOr<std::vector<std::optional<Score>>> evaluate(Tuning& t, const std::vector<std::vector<Change>>& sets) {
  const int seed = find_param("Seed"), tl = find_param("TimeLimit"), threads = find_param("Threads");
  // A trial slower than twice the best finished time cannot win.
  const double cap = std::min({t.model_limit, std::max(0.0, t.left()), 2.0 * t.best_finished_time + 0.01});
  std::vector<CopyRun> runs;
  for (const std::vector<Change>& changes : sets) {
    ParamSet ps = t.base;
    VLM_RETURN_IF_ERROR(apply(ps, changes));
    VLM_RETURN_IF_ERROR(ps.set_dbl(tl, cap));
    if (t.trial_threads > 0) VLM_RETURN_IF_ERROR(ps.set_int(threads, t.trial_threads));
    for (int k = 0; k < t.trials; ++k) {
      VLM_RETURN_IF_ERROR(ps.set_int(seed, std::min<long long>(t.base.get_int(seed) + k, VLM_MAXINT)));
      CopyRun run;
      // Trial logs (TuneOutput 3) only when trials run one at a time: side by side they would
      // interleave.
      run.copy = run_copy(t.m, ps, t.output < 3 || t.jobs > 1);
      runs.push_back(std::move(run));
    }
  }
  const auto deadline = t.t0 + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                   std::chrono::duration<double>(std::max(0.0, t.budget)));
  run_copies(runs, t.jobs, *t.stop, false, deadline);
  const int sense = t.m.data().sense;
  std::vector<std::optional<Score>> scores;
  for (std::size_t i = 0; i < sets.size(); ++i) {
    Score sc;
    sc.finished = true;
    bool complete = true;
    double total = 0.0, worst = 0.0, measure = 0.0;
    for (int k = 0; k < t.trials; ++k) {
      CopyRun& run = runs[i * t.trials + k];
      if (!run.status.ok()) return run.status;
      const Solution* s = run.copy->solution();
      if (!run.ended || s == nullptr || s->status == VLM_INTERRUPTED) {
        complete = false;
        break;
      }
      const double time = s->runtime;
      total += time;
      worst = std::max(worst, time);
      bool done = finished_status(s->status) && s->status != VLM_CUTOFF;
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
    }
    if (!complete) {
      scores.emplace_back();
      continue;
    }
    sc.time = t.metric == 1 ? worst : total / t.trials;
    sc.measure = measure;
    if (sc.finished) t.best_finished_time = std::min(t.best_finished_time, sc.time);
    scores.push_back(sc);
  }
  return scores;
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

// The changes that turn `from` into `to`, for the numeric parameters (the tuner changes no
// text parameter).
std::vector<Change> differences(const ParamSet& from, const ParamSet& to) {
  std::vector<Change> out;
  for (int i = 0; i < static_cast<int>(param_table().size()); ++i) {
    if (param_table()[i].type == ParamType::kStr) continue;
    if (from.get_dbl(i) != to.get_dbl(i)) out.push_back({i, to.get_dbl(i)});
  }
  return out;
}

// The change sets of the TuneBaseSettings files (a comma-separated list). Fails as reading a
// parameter file fails, naming the file.
StatusOr<std::vector<std::vector<Change>>> base_settings(const ParamSet& ps) {
  std::vector<std::vector<Change>> out;
  const std::string list = ps.str_param("TuneBaseSettings");
  std::size_t at = 0;
  while (at <= list.size()) {
    std::size_t comma = list.find(',', at);
    if (comma == std::string::npos) comma = list.size();
    std::string name = list.substr(at, comma - at);
    at = comma + 1;
    const auto first = name.find_first_not_of(" \t");
    if (first == std::string::npos) continue;
    name = name.substr(first, name.find_last_not_of(" \t") - first + 1);
    ParamSet scratch = ps;
    VLM_RETURN_IF_ERROR(io::read_params(name, scratch));
    out.push_back(differences(ps, scratch));
  }
  return out;
}

// How many trials run at the same time: TuneJobs plus TuneDynamicJobs (-1: one per hardware
// thread), at least one.
int job_count(const ParamSet& ps) {
  auto count = [](int v) { return v < 0 ? engine::hardware_threads() : v; };
  return std::clamp(count(ps.int_param("TuneJobs")) + count(ps.int_param("TuneDynamicJobs")), 1, kMaxTuneJobs);
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
  t.jobs = job_count(ps);
  if (t.jobs > 1) {
    // The model's threads are shared out among the trials that run at once.
    const int want = ps.int_param("Threads");
    t.trial_threads = std::max(1, (want > 0 ? want : engine::default_highs_threads()) / t.jobs);
  }
  const double tune_limit = ps.dbl_param("TuneTimeLimit");
  const double target_time = ps.dbl_param("TuneTargetTime");
  const double cleanup = ps.dbl_param("TuneCleanup");
  const int keep = ps.int_param("TuneResults");
  if (tune_limit >= 0.0) t.budget = tune_limit;
  // Base settings are read before anything runs, so that a bad file costs nothing.
  VLM_ASSIGN_OR_RETURN(std::vector<std::vector<Change>> bases, base_settings(ps));
  engine::StopFlag stop(&m);
  engine::SigintScope sigint(m.take_signal_request(), &stop.flag);
  t.stop = &stop.flag;
  if (t.output >= 1) {
    char line[200];
    std::snprintf(line, sizeof line, "Tuning: %s model, %d trial%s per parameter set, %d at a time, time limit %s",
                  t.mip ? "MIP" : "continuous", t.trials, t.trials == 1 ? "" : "s", t.jobs,
                  tune_limit >= 0.0 ? format_double(tune_limit).c_str() : "automatic");
    m.env().message(line);
  }

  Candidate baseline;
  std::vector<Candidate> tried;
  {
    VLM_ASSIGN_OR_RETURN(std::vector<std::optional<Score>> first, evaluate(t, {{}}));
    if (!first[0]) {
      // Stopped before the baseline ended: nothing to compare with, the current settings stand.
      if (t.output >= 1) m.env().message("Tuning: stopped during the baseline; the current settings are the result");
      m.set_tune_results({TuneResult{ps, {}}});
      return Status::Ok();
    }
    baseline.score = *first[0];
  }
  if (tune_limit < 0.0) t.budget = std::clamp(20.0 * baseline.score.time * t.trials, 2.0, 3600.0);
  // TuneCleanup's share of the time is kept for the clean-up after the search.
  const double reserve = cleanup * t.budget;
  if (t.output >= 2) log_set(t, baseline, "tried");

  Candidate best = baseline;
  auto stopped = [&] { return t.stop->load(); };
  auto done = [&] {
    return stopped() || t.left() - reserve <= 0.0 || (best.score.finished && best.score.time < target_time);
  };
  // Scores `sets` (side by side as far as the jobs allow); returns how many got a score.
  auto try_sets = [&](const std::vector<std::vector<Change>>& sets) -> StatusOr<int> {
    VLM_ASSIGN_OR_RETURN(std::vector<std::optional<Score>> scores, evaluate(t, sets));
    int scored = 0;
    for (std::size_t i = 0; i < sets.size(); ++i) {
      if (!scores[i]) continue;
      ++scored;
      Candidate c{sets[i], *scores[i]};
      if (t.output >= 2) log_set(t, c, "tried");
      if (improves(c.score, baseline.score) && ranks_before(c.score, best.score)) {
        best = c;
        if (t.output >= 1) log_set(t, c, "improved set");
      }
      tried.push_back(std::move(c));
    }
    return scored;
  };

  // The base settings first; the best of them (or the current settings) is where the search
  // starts.
  if (!bases.empty() && !done()) VLM_RETURN_IF_ERROR(try_sets(bases).status());
  const std::vector<Change> start = best.changes;
  auto in_start = [&start](int param) {
    return std::any_of(start.begin(), start.end(), [param](const Change& c) { return c.param == param; });
  };

  // One change at a time, as many sets at once as the jobs can run.
  std::vector<std::vector<Change>> singles_to_try;
  for (const Change& c : moves(t.mip)) {
    if (ps.tune_fixed(c.param) || ps.get_dbl(c.param) == c.value || in_start(c.param)) continue;
    std::vector<Change> set = start;
    set.push_back(c);
    singles_to_try.push_back(std::move(set));
  }
  const std::size_t batch = static_cast<std::size_t>(std::max(1, (t.jobs + t.trials - 1) / t.trials));
  const std::size_t first_single = tried.size();
  for (std::size_t i = 0; i < singles_to_try.size() && !done(); i += batch) {
    const std::size_t end = std::min(singles_to_try.size(), i + batch);
    VLM_RETURN_IF_ERROR(try_sets({singles_to_try.begin() + i, singles_to_try.begin() + end}).status());
  }
  // The improving changes combined greedily, best first (one value per parameter).
  std::vector<Candidate> singles;
  for (std::size_t i = first_single; i < tried.size(); ++i) {
    if (improves(tried[i].score, baseline.score)) singles.push_back(tried[i]);
  }
  std::stable_sort(singles.begin(), singles.end(),
                   [](const Candidate& a, const Candidate& b) { return ranks_before(a.score, b.score); });
  if (singles.size() >= 2) {
    Candidate current = singles[0];
    for (std::size_t k = 1; k < singles.size() && !done(); ++k) {
      const Change& add = singles[k].changes.back();
      const bool clash = std::any_of(current.changes.begin(), current.changes.end(),
                                     [&](const Change& c) { return c.param == add.param; });
      if (clash) continue;
      std::vector<Change> combined = current.changes;
      combined.push_back(add);
      VLM_ASSIGN_OR_RETURN(int scored, try_sets({combined}));
      if (scored == 1 && improves(tried.back().score, current.score)) current = tried.back();
    }
  }

  // Clean-up: changes of the best set whose removal costs nothing (within the margin) go.
  if (cleanup > 0.0 && best.changes.size() >= 2 && !stopped()) {
    Candidate cleaned = best;
    for (std::size_t k = cleaned.changes.size(); k-- > 0 && cleaned.changes.size() >= 2;) {
      if (stopped() || t.left() <= 0.0) break;
      std::vector<Change> without = cleaned.changes;
      without.erase(without.begin() + static_cast<std::ptrdiff_t>(k));
      VLM_ASSIGN_OR_RETURN(std::vector<std::optional<Score>> sc, evaluate(t, {without}));
      if (sc[0] && !improves(cleaned.score, *sc[0])) {
        if (t.output >= 2) {
          m.env().message("Tuning: clean-up drops " + describe({cleaned.changes[k]}));
        }
        cleaned = Candidate{without, *sc[0]};
      }
    }
    if (cleaned.changes.size() < best.changes.size()) {
      for (Candidate& c : tried) {
        if (c.changes.size() == best.changes.size() && describe(c.changes) == describe(best.changes)) c = cleaned;
      }
      best = cleaned;
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
    if (stopped()) m.env().message("Tuning: stopped by a terminate request; the results so far are kept");
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
