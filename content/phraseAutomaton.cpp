#include "content/phraseAutomaton.h"

#include <algorithm>

#include "content/phraseTable.h"

namespace netsift {
namespace {

/* Stretches are not shorter, nor than what is read twice. */
constexpr uint32_t shortestStretch = 64;
static_assert((streamCount + 1) * matchedLimit < stepLimit && streamCount * shortestStretch + matchedLimit < stepLimit);

void noteHit(TextStream &stream, const char *text) {
  if ((stream.step & hitBit) == 0) return;
  const auto position = reinterpret_cast<const char *>(stream.at) - text;
  stream.hits[stream.hitCount++] = {static_cast<uint32_t>(position), stream.step & stateBits};
}

/* Reads `count` bytes of each stretch, in turns, so that the processor works on one while it waits for another's
   memory. */
template <size_t streams>
void readStretches(TextRun &run, uint32_t count) {
  const AutomatonState *states = run.automaton->states;
  const uint32_t *rows = run.automaton->rows;
  const uint8_t *classes = run.automaton->classes;
  const unsigned char *at[streams];
  uint32_t steps[streams];
  for (size_t k = 0; k < streams; k++) {
    at[k] = run.streams[k].at;
    steps[k] = run.streams[k].step;
  }
  for (uint32_t i = 0; i < count; i++) {
    uint32_t all = 0;
    for (size_t k = 0; k < streams; k++) {
      steps[k] = follow(states, rows, steps[k], classes[at[k][i]]);
      all |= steps[k];
    }
    if ((all & hitBit) == 0) [[likely]]
      continue;
    for (size_t k = 0; k < streams; k++) {
      TextStream &stream = run.streams[k];
      stream.at = at[k] + i + 1;
      stream.step = steps[k];
      noteHit(stream, run.text);
    }
  }
  for (size_t k = 0; k < streams; k++) run.streams[k].step = steps[k];
}

void startStream(TextRun &run, size_t k, uint32_t at, uint32_t step) {
  TextStream &stream = run.streams[k];
  stream.at = reinterpret_cast<const unsigned char *>(run.text) + at;
  stream.step = step;
  stream.firstHit = stream.hitCount = 0;
}

/* A stretch that begins in the middle begins at the empty state, which is the right one after as many bytes as the
   longest beginning has: these are read twice, as the end of the stretch before and here. */
void readSideBySide(TextRun &run, uint32_t length) {
  const uint32_t twice = run.automaton->longest;
  for (size_t k = 0; k < streamCount; k++) {
    startStream(run, k, run.at + static_cast<uint32_t>(k) * length, k == 0 ? run.step : 0);
  }
  readStretches<streamCount>(run, length + twice);
  for (size_t k = 1; k < streamCount; k++) {
    TextStream &stream = run.streams[k];
    const uint32_t own = run.at + static_cast<uint32_t>(k) * length + twice;
    while (stream.firstHit < stream.hitCount && stream.hits[stream.firstHit].position <= own) stream.firstHit++;
  }
  run.at += streamCount * length + twice;
  run.step = run.streams[streamCount - 1].step;
}

/* What is left, too little to be worth reading in several stretches. */
void readRest(TextRun &run) {
  for (size_t k = 0; k < streamCount; k++) startStream(run, k, run.at, run.step);
  readStretches<1>(run, run.end - run.at);
  run.at = run.end;
}

}  // namespace

bool readOn(TextRun &run) {
  if (run.at >= run.end) return false;
  const uint32_t left = run.end - run.at, twice = run.automaton->longest;
  const uint32_t shortest = std::max(twice, shortestStretch);
  if (left < streamCount * shortest + twice) {
    readRest(run);
  } else {
    readSideBySide(run, std::min<uint32_t>((left - twice) / streamCount, stepLimit - twice));
  }
  return true;
}

}  // namespace netsift
