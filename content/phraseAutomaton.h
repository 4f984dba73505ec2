/* All phrases of all categories as one automaton, so that a text is read once: internal to content/.

   A state is a beginning that phrases share, the longest one that the text read so far ends with; the shorter ones that
   it ends with too are its suffixes. Beginnings and what follows them are those of the look-up tables (phraseTable.h),
   whatever order a file has: a state stands for exactly the matches that a scan of the lists would have open, were
   there no bound on them.

   Bytes are told apart by class: a class for each byte that some phrase holds, and 0 for all others. A state that few
   bytes lead on from, in other ways than they lead on from one of its suffixes, names these bytes, at most three, and
   a suffix of which it is true for the rest; that suffix has a row with a step for every class. */
#ifndef NETSIFT_CONTENT_PHRASEAUTOMATON_H
#define NETSIFT_CONTENT_PHRASEAUTOMATON_H

#include <cstddef>
#include <cstdint>

#include "state/records.h"

namespace netsift {

/* A step: 23 bits of a state's number, a bit that says whether something is to be done there, and in a state's own steps
   the class in the upper 8 bits. */
constexpr uint32_t stateBits = 0x7fffff, hitBit = 0x800000, stepBits = hitBit | stateBits;
constexpr unsigned classShift = 24;

constexpr size_t ownSteps = 3;

constexpr size_t maxPhraseCategories = 255; /* their count has 8 bits */

struct AutomatonState {
  uint32_t row;             /* where the row begins that holds for all classes but those of the own steps */
  uint32_t steps[ownSteps]; /* 0, which is true for class 0 of every state, in place of those that there are not */
};

/* A phrase that is whole in a state. */
struct PhraseOutput {
  const PhraseNode *phrase;
  uint32_t next; /* the next output of the state, those of longer phrases first; 0: none */
  uint8_t category;
  uint8_t length;
  bool hides; /* a match that stays at this phrase's end does not go on with a byte below NUL, though phrases do */
};

/* In place of a state's first output: more matches may be open than the pool holds. */
constexpr uint32_t crowded = UINT32_MAX;

struct PhraseAutomaton {
  const AutomatonState *states; /* the first is the empty beginning */
  const uint32_t *rows;
  const uint32_t *firstOutputs; /* by state: 0 none, or crowded */
  const PhraseOutput *outputs;
  uint8_t classes[256];
  unsigned longest;                      /* bytes of the longest beginning */
  uint32_t serials[maxPhraseCategories]; /* of the tables of each slot's index; 0: none */
  size_t size;                           /* bytes of memory */
};

/* Makes the automaton of the indexes in initiallists, in place of an earlier one. There is none afterwards when they
   hold no phrase, when it would take more than 100 bytes of memory a phrase byte, and when memory runs out. */
void buildPhraseAutomaton();

void freePhraseAutomaton();

/* The automaton, when it is that of the first numcategories1 of the indexes that are in initiallists now; else null. */
const PhraseAutomaton *findPhraseAutomaton();

/* The step from a state on a class. Compilers make it without branches: which of the cases holds cannot be foretold
   from one byte of a text to the next. */
inline uint32_t follow(const AutomatonState *states, const uint32_t *rows, uint32_t step, uint32_t byteClass) {
  const AutomatonState &state = states[step & stateBits];
  uint32_t next = rows[state.row + byteClass];
  for (const uint32_t own : state.steps) {
    const uint32_t difference = own ^ byteClass << classShift;
    next = difference <= stepBits ? difference : next;
  }
  return next;
}

/* A position of a text at whose state there is something to be done. */
struct Hit {
  uint32_t position; /* of the byte after */
  uint32_t state;
};

constexpr size_t streamCount = 4, stepLimit = 2048;

/* A stretch of a text, read from its state at `at`. */
struct TextStream {
  const unsigned char *at;
  uint32_t step;
  uint32_t firstHit, hitCount; /* hits before the first belong to the stretch before */
  Hit hits[stepLimit];
};

/* A text on its way through an automaton, some thousand bytes a turn. */
struct TextRun {
  const PhraseAutomaton *automaton;
  const char *text;
  uint32_t at, end; /* bytes still to be read */
  uint32_t step;    /* to the state before them */
  TextStream streams[streamCount];
};

/* Reads on. The hits that it met are then those of the streams, in their order. False when the text had been read. */
bool readOn(TextRun &run);

}  // namespace netsift

#endif
