#include "log/requestRecord.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "log/requestWriter.h"
#include "state/connection.h"
#include "state/results.h"

void (*netsift_countRequest)(const NetsiftRequestFigures *figures);

namespace netsift {

RequestRecord record;
int requestLogFile = -1;

namespace {

/* What goes to another process with a relay. */
struct PackedNumbers {
  NetsiftRequestFigures figures;
  int64_t began, started, viaProxy;
};
constexpr size_t longestPacked = 512; /* of a text */
constexpr std::string RequestRecord::*packedTexts[] = {&RequestRecord::client, &RequestRecord::user,
                                                       &RequestRecord::method, &RequestRecord::url,
                                                       &RequestRecord::upstream};

int64_t microseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

void finish(RequestRecord &done) {
  done.figures.microseconds = static_cast<uint64_t>(std::max<int64_t>(microseconds(CLOCK_MONOTONIC) - done.started, 0));
  if (isLogged()) writeRecord(done);
  if (netsift_countRequest != nullptr) netsift_countRequest(&done.figures);
}

}  // namespace

void beginRecord() {
  if (!isRecorded()) return;
  record = {};
  record.isOpen = true;
  record.began = microseconds(CLOCK_REALTIME);
  record.started = microseconds(CLOCK_MONOTONIC);
  if (isLogged()) record.client = clientip;
}

void dropRecord() {
  if (record.isOpen) record = {};
}

void noteBlock(int32_t blocked, int32_t category, std::string_view detail) {
  record.figures.blocked = blocked;
  record.figures.category = category;
  if (isLogged()) record.detail = detail;
}

int64_t timingStart() { return isRecorded() ? microseconds(CLOCK_MONOTONIC) : 0; }

void noteScan(int32_t verdict, int64_t start) {
  int32_t scan = NETSIFT_SCANNED_NO_ANSWER;
  if (verdict == NETSIFT_SCAN_CLEAN) scan = NETSIFT_SCANNED_CLEAN;
  if (verdict == NETSIFT_SCAN_INFECTED) scan = NETSIFT_SCANNED_INFECTED;
  NetsiftRequestFigures &figures = record.figures;
  figures.scan = std::max(figures.scan, scan);
  if (start != 0) figures.engineMicroseconds += static_cast<uint64_t>(microseconds(CLOCK_MONOTONIC) - start);
}

const std::string &requestReference() {
  constexpr char digits[] = "abcdefghijkmnpqrstuvwxyz23456789"; /* 32 that nobody mistakes for another */
  unsigned char random[8];
  const bool isWanted = isLogged() && record.reference.empty();
  if (isWanted && getrandom(random, sizeof random, 0) == sizeof random) {
    for (const unsigned char byte : random) record.reference += digits[byte & 31];
  }
  return record.reference;
}

void endRecord() {
  if (!record.isOpen) {
    record.figures = {};
    return;
  }
  if (record.figures.outcome == NETSIFT_REQUEST_OPEN)
    noteOutcome(record.figures.bytes > 0 ? NETSIFT_REQUEST_DELIVERED : NETSIFT_REQUEST_ABORTED);
  if (!record.isMoved) finish(record);
  record = {};
}

}  // namespace netsift

using namespace netsift;

void netsift_recordRefused(int32_t level) {
  if (!isRecorded()) return;
  const NetsiftRequestFigures answered = record.figures;
  beginRecord();
  record.figures.bytes = answered.bytes;
  record.figures.status = answered.status;
  noteOutcome(NETSIFT_REQUEST_BLOCKED);
  noteBlock(NETSIFT_BLOCK_ACCESS, 0, "level " + std::to_string(level));
  endRecord();
}

/* The record's numbers as they are in memory, then its texts, each with a NUL. */
uint32_t netsift_packRecord(char *out, uint32_t room) {
  if (!record.isOpen || room < NETSIFT_PACKED_RECORD) return 0;
  const PackedNumbers numbers{record.figures, record.began, record.started, record.viaProxy ? 1 : 0};
  std::string packed(reinterpret_cast<const char *>(&numbers), sizeof numbers);
  for (std::string RequestRecord::*text : packedTexts) packed.append(record.*text, 0, longestPacked) += '\0';
  static_assert(sizeof numbers + std::size(packedTexts) * (longestPacked + 1) <= NETSIFT_PACKED_RECORD);
  return static_cast<uint32_t>(packed.copy(out, room));
}

void netsift_recordRelay(const char *packed, uint32_t size, uint64_t bytesToClient) {
  PackedNumbers numbers;
  if (!isRecorded() || size < sizeof numbers) return;
  std::memcpy(&numbers, packed, sizeof numbers);
  RequestRecord done;
  done.figures = numbers.figures;
  done.began = numbers.began;
  done.started = numbers.started;
  done.viaProxy = numbers.viaProxy != 0;
  std::string_view rest(packed + sizeof numbers, size - sizeof numbers);
  for (std::string RequestRecord::*text : packedTexts) {
    done.*text = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min((done.*text).size() + 1, rest.size()));
  }
  done.figures.bytes += bytesToClient;
  finish(done);
}
