#include "loss_detector.h"

#include "hex.h"

namespace keltipc {
namespace {

constexpr const char* incomplete = "incomplete";
constexpr const char* mixed_up = "mixed up with an earlier signal";

std::string chunk_text(const Frame& frame) { return "chunk " + std::to_string(frame.chunk); }

}  // namespace

void LossDetector::add(const Frame& frame, bool is_copy, bool completes) {
  const bool repeats = is_copy && frame.total_size > payload_size;
  if (repeats) {
    ++count.repetitions;
    faults.push_back("repetition: signal " + to_hex(frame.id) + ", " + chunk_text(frame));
    unclear.reset();
  }
  lose_unclear();
  const bool begins = !repeats && note_chunk(frame);
  if (!extends_run(frame)) mix_run(frame, begins);
  if (completes) end_run();
}

void LossDetector::add_filtered(bool completes) {
  cut_off(incomplete);
  run = completes ? Run::empty : Run::mixed;
}

void LossDetector::cut_off(const char* reason) {
  lose_unclear();
  if (run == Run::one_signal) lose(running.id, reason);
  run = Run::empty;
}

/// Returns whether the frame begins a signal.
bool LossDetector::note_chunk(const Frame& frame) {
  LatestSignals::Signal* const known = latest.find(frame.id);
  if (known == nullptr || !frame.has_signal_of(known->latest) || frame.chunk <= known->latest.chunk) {
    latest.put({frame.part(), false});
    return true;
  }
  known->latest = frame.part();
  if (std::exchange(known->is_whole, false)) lose(frame.id, chunk_text(frame) + " after its end");
  return false;
}

/// Returns whether the frames of the run, and this one, are the first chunks of one signal.
bool LossDetector::extends_run(const Frame& frame) {
  const bool begins = run == Run::empty && frame.chunk == 0;
  const bool continues = run == Run::one_signal && frame.has_signal_of(running) && frame.chunk == running.chunk + 1;
  if (!begins && !continues) return false;
  run = Run::one_signal;
  running = frame.part();
  return true;
}

void LossDetector::mix_run(const Frame& frame, bool begins) {
  const bool belongs = run == Run::one_signal && !begins && frame.id == running.id;
  const bool may_begin_anew = frame.chunk == 0 && frame.total_size > payload_size;
  if (run == Run::one_signal && !(belongs && may_begin_anew))
    lose(running.id, belongs ? chunk_text(frame.chunk, running.chunk) : incomplete);
  run = Run::mixed;
  if (may_begin_anew) {
    unclear = frame.id;
  } else if (begins) {
    lose(frame.id, frame.chunk == 0 ? mixed_up : "begins with " + chunk_text(frame));
  }
}

void LossDetector::end_run() {
  if (run == Run::one_signal) {
    ++count.whole;
    latest.find(running.id)->is_whole = true;
  }
  run = Run::empty;
}

void LossDetector::lose(std::uint32_t id, const std::string& reason) {
  ++count.lost;
  faults.push_back("signal " + to_hex(id) + ": " + reason);
}

void LossDetector::lose_unclear() {
  if (unclear) lose(*unclear, mixed_up);
  unclear.reset();
}

}  // namespace keltipc
