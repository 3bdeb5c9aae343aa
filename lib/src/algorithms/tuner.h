// The parameter tuner: searches for settings that solve a model faster (or, when it cannot be
// solved within the time, with a better gap, objective or bound) than the current ones.
//
// A parameter set is judged by TuneTrials solves of a copy of the model, trial t with Seed
// (current Seed + t). A set "finishes" when every trial ends optimal, infeasible or unbounded
// (or, with TuneTargetMIPGap > 0, within that gap); it is then scored by the mean (TuneMetric
// -1 or 0) or worst (1) trial time, else by TuneCriterion: 1 (and -1) the gap, 2 the best
// objective, 3 the best bound, 0 only whether it finished. A finished set beats an unfinished
// one. A set improves on another only by at least 10% of its time (timing noise).
//
// Search: the current settings (the baseline); the TuneBaseSettings files, the best of which
// is the starting point; then one change at a time on top of it from a fixed list of
// parameters the engine honours (MIP: MIPFocus, Heuristics, Cuts, Symmetry, Presolve,
// NodeMethod, RINS, HeuFeasJump; continuous: Method, Presolve, ScaleFlag, SimplexPricing,
// PreDual); then the improving changes combined greedily, best first. Parameters marked by
// fixTuneParam, and changes to a value the parameter already has, are skipped. Every trial
// after the baseline is cut off at twice the best finished time so far, since it cannot win.
// The search stops when TuneTimeLimit is spent (-1: 20 times the baseline's time, at least
// 2 seconds) but for the TuneCleanup share, which goes to dropping changes of the best set
// that do not help; when the list is done; when the best time is below TuneTargetTime; or on
// terminate, which keeps the results so far. Trials run on copies of the model on solver
// threads, TuneJobs + TuneDynamicJobs at a time.
// docs/tuner.md has what was measured.
#pragma once

#include "core/status.h"
#include "model/model.h"

namespace vlm::algorithms {

// Tunes the updated model as the file comment says and stores the results on it
// (Model::tune_results, TuneResultCount): the sets that improve on the baseline, best first,
// at most TuneResults of them (-1: all); when none improves, the baseline alone (no changes).
// TuneOutput 1 logs improved sets, 2 also every set tried, 3 also the trials' own logs. The
// model's solution and parameters are left as they were. Fails as reading a TuneBaseSettings
// file fails (before any solve), or as optimize fails on a trial. Cost: up to TuneTimeLimit of
// solves.
Status tune(Model& m);

// Loads tuning result `i` into the model's parameters (the settings at the start of tuning
// with the result's changes). Fails with VLM_ERROR_DATA_NOT_AVAILABLE before any tuning run
// and VLM_ERROR_INDEX_OUT_OF_RANGE for `i` outside [0, TuneResultCount). O(parameters).
Status load_tune_result(Model& m, int i);

}  // namespace vlm::algorithms
