#include "http/strictCoding.h"

#include <algorithm>

#include "http/strictField.h"

namespace netsift {
namespace {

/* Pages compress to a fifth, long tables to a twentieth, and short texts may be as repetitive as they like; zlib's limit
   is about 1030, and the others have none. */
constexpr struct { uint64_t text, ratio; } bounds[] = {{1ULL << 20, 200}, {256ULL << 20, 20}};

bool growsBeyondBounds(uint64_t given, uint64_t taken) {
  return std::any_of(std::begin(bounds), std::end(bounds),
                     [&](const auto &bound) { return given > bound.text && given / bound.ratio > taken; });
}

constexpr struct {
  std::string_view name;
  Coding coding;
} names[] = {{"gzip", Coding::gzip}, {"x-gzip", Coding::gzip}, {"deflate", Coding::deflate},
             {"br", Coding::brotli}, {"zstd", Coding::zstd},   {"identity", Coding::identity}};

Coding codingNamed(std::string_view name) {
  const auto *found = std::find_if(std::begin(names), std::end(names),
                                   [name](const auto &one) { return equalsIgnoringCase(name, one.name); });
  return found == std::end(names) ? Coding::unknown : found->coding;
}

/* "q=0.8" with the blanks that may stand around it (RFC 9110 section 12.4.2); empty when it is no weight, or one of 0.
 */
std::string_view weightOf(std::string_view parameter) {
  const size_t start = parameter.find_first_not_of(" \t");
  if (start == parameter.npos) return {};
  const std::string_view weight = parameter.substr(start);
  if (weight.size() < 3 || weight.size() > 7 || !equalsIgnoringCase(weight.substr(0, 2), "q=")) return {};
  const std::string_view digits = weight.substr(2);
  const bool isNumber = (digits[0] == '0' || digits[0] == '1') && (digits.size() == 1 || digits[1] == '.') &&
                        digits.find_first_not_of("0123456789", 2) == digits.npos;
  return isNumber && digits.find_first_of("123456789") != digits.npos ? weight : std::string_view();
}

/* What the next byte begins: the first stream, another one, or the rest. */
bool beginStream(CodingDecoder &decoder, const Unpacker &unpacker, char next) {
  const bool begins = decoder.place == CodingPlace::start || unpacker.continues(next);
  decoder.place = begins ? CodingPlace::stream : CodingPlace::rest;
  return !begins || unpacker.begin(decoder.stream, next);
}

void takeRest(const CodingDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room,
              size_t &produced) {
  const size_t shown = decoder.showsRest ? std::min(in.size(), room) : 0;
  std::copy_n(in.begin(), shown, out);
  produced += shown;
  used += decoder.showsRest ? shown : in.size();
}

/* One call of the library; false when the body is bad. */
bool unpackPiece(CodingDecoder &decoder, const Unpacker &unpacker, std::string_view in, size_t &used, char *out,
                 size_t room, size_t &produced) {
  const size_t usedBefore = used, producedBefore = produced;
  const Unpacked result = unpacker.unpack(decoder.stream, in, used, out, room, produced);
  decoder.taken += used - usedBefore;
  decoder.given += produced - producedBefore;
  if (result == Unpacked::streamEnd) decoder.place = CodingPlace::complete;
  return result != Unpacked::bad;
}

/* The first coding's output to the last one's input. */
Parse refill(CodingChain &chain, std::string_view in, size_t &used) {
  size_t taken = 0, made = 0;
  const Parse answer =
      decodeCoding(chain.each[0], in.substr(used), taken, chain.between.data(), chain.between.size(), made);
  used += taken;
  chain.start = 0;
  chain.end = made;
  chain.firstHolds = made == chain.between.size();
  return answer;
}

Parse decodeTwo(CodingChain &chain, std::string_view in, size_t &used, char *out, size_t room, size_t &produced) {
  for (;;) {
    if (chain.start < chain.end || chain.lastHolds) {
      size_t taken = 0, made = 0;
      const std::string_view held(chain.between.data() + chain.start, chain.end - chain.start);
      const Parse answer = decodeCoding(chain.each[1], held, taken, out + produced, room - produced, made);
      chain.start += taken;
      produced += made;
      chain.lastHolds = produced == room;
      if (answer == Parse::bad) return answer;
      if (chain.lastHolds) return Parse::more;
    }
    if (used == in.size() && !chain.firstHolds) return finishCodings(chain) == Parse::done ? Parse::done : Parse::more;
    if (refill(chain, in, used) == Parse::bad) return Parse::bad;
    if (growsBeyondBounds(chain.each[0].given, chain.each[0].taken)) chain.exceeded = true;
    if (chain.exceeded && !chain.unbounded) return Parse::bad;
  }
}

}  // namespace

ContentCodings readContentCodings(const HeaderLine *first) {
  ContentCodings codings;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Content-Encoding:")) continue;
    for (std::string_view list = fieldValue(line, "Content-Encoding:"); !list.empty();) {
      const std::string_view name = takeElement(list);
      const Coding coding = name.empty() ? Coding::identity : codingNamed(name);
      if (coding == Coding::identity) continue;
      if (coding == Coding::unknown || codings.count == mostCodings) codings.known = false;
      if (codings.known) codings.each[codings.count++] = coding;
    }
  }
  std::reverse(codings.each.begin(), codings.each.begin() + static_cast<std::ptrdiff_t>(codings.count));
  return codings;
}

std::string codingsToAskFor(const HeaderLine *first) {
  std::string asked;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Accept-Encoding:")) continue;
    for (std::string_view list = fieldValue(line, "Accept-Encoding:"); !list.empty();) {
      const std::string_view element = takeElement(list);
      const size_t semicolon = std::min(element.find(';'), element.size());
      const std::string_view name = element.substr(0, element.find_last_not_of(" \t", semicolon - 1) + 1);
      const bool isWeighted = semicolon < element.size();
      const std::string_view weight = isWeighted ? weightOf(element.substr(semicolon + 1)) : std::string_view();
      if (codingNamed(name) == Coding::unknown || (isWeighted && weight.empty())) continue;
      asked.append(asked.empty() ? "" : ", ").append(name);
      if (isWeighted) asked.append(";").append(weight);
    }
  }
  return asked.empty() ? "identity" : asked;
}

Parse decodeCoding(CodingDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room,
                   size_t &produced) {
  used = produced = 0;
  const Unpacker *unpacker = unpackerFor(decoder.coding);
  if (unpacker == nullptr) return Parse::bad;
  for (;;) {
    if (decoder.place == CodingPlace::rest)
      takeRest(decoder, in.substr(used), used, out + produced, room - produced, produced);
    if (decoder.place == CodingPlace::stream) {
      if (!unpackPiece(decoder, *unpacker, in.substr(used), used, out + produced, room - produced, produced))
        return Parse::bad;
      const bool stopped = used == in.size() || produced == room;
      if (decoder.place == CodingPlace::stream && stopped) return Parse::more;
    } else if (used == in.size()) {
      return decoder.place == CodingPlace::start ? Parse::more : Parse::done;
    } else if (produced == room) {
      return Parse::more;
    } else if (!beginStream(decoder, *unpacker, in[used])) {
      return Parse::bad;
    }
  }
}

Parse finishCoding(const CodingDecoder &decoder) {
  return decoder.place == CodingPlace::stream ? Parse::bad : Parse::done;
}

void startCodings(CodingChain &chain, const ContentCodings &codings, bool showsRest) {
  chain.count = codings.count;
  for (size_t i = 0; i < codings.count; i++) {
    chain.each[i].coding = codings.each[i];
    chain.each[i].showsRest = showsRest;
  }
}

Parse decodeCodings(CodingChain &chain, std::string_view in, size_t &used, char *out, size_t room, size_t &produced) {
  used = produced = 0;
  const Parse answer = chain.count == 1 ? decodeCoding(chain.each[0], in, used, out, room, produced)
                                        : decodeTwo(chain, in, used, out, room, produced);
  const CodingDecoder &last = chain.each[chain.count - 1];
  if (growsBeyondBounds(last.given, chain.each[0].taken)) chain.exceeded = true;
  return chain.exceeded && !chain.unbounded ? Parse::bad : answer;
}

Parse finishCodings(const CodingChain &chain) {
  const bool whole = std::all_of(chain.each.begin(), chain.each.begin() + static_cast<std::ptrdiff_t>(chain.count),
                                 [](const CodingDecoder &one) { return finishCoding(one) == Parse::done; });
  return whole ? Parse::done : Parse::bad;
}

}  // namespace netsift
