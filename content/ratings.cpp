#include "content/ratings.h"

#include <cstdlib>
#include <cstring>
#include <span>

#include "content/wildcard.h"
#include "log/debugLog.h"
#include "state/settings.h"

namespace {

/* A key stands in its list with the blank that separates it from its value. */
constexpr const char *icraKeys[] = {"la ", "ca ", "cb ", "lb ", "lc ", "na ", "nb ", "nc ", "nd ", "ne ",
                                    "nf ", "ng ", "nh ", "ni ", "nr ", "ns ", "nt ", "oa ", "ob ", "oc ",
                                    "od ", "oe ", "of ", "og ", "oh ", "va ", "vb ", "vc ", "vd ", "ve ",
                                    "vf ", "vg ", "vh ", "vi ", "vj ", "vr ", "vs ", "vt ", "vu ", "vk "};
constexpr const char *rsacKeys[] = {"v ", "s ", "n ", "l "}; /* violence, sex, nudity, language */
constexpr const char *safeSurfKeys[] = {"000 ", "001 ", "002 ", "003 ", "004 ", "005 ",
                                        "006 ", "007 ", "008 ", "009 ", "00A "};
static_assert(std::size(icraKeys) == std::size(icra) && std::size(rsacKeys) == std::size(rsac) &&
              std::size(safeSurfKeys) == std::size(safesurf));

constexpr long highestRating = 10; /* a value above it is taken as 0 */

/* 1 when a key of the label's rating list exceeds the limit of the same position. The list ends at its first ")", and
   without one where the tag ends. */
int exceedsLimits(char *label, std::span<const char *const> keys, const int32_t *limits) {
  char *list = findRating(label);
  if (list == nullptr) return 0;
  char *close = std::strchr(list, ')');
  if (close != nullptr) *close = '\0';
  int exceeded = 0;
  for (size_t i = 0; i < keys.size() && exceeded == 0; i++) exceeded = isRatingAllowed(list, keys[i], limits[i]) == 0;
  if (close != nullptr) *close = ')';
  return exceeded;
}

/* The label of one meta tag; checkPICSRating's result. */
int judgeLabel(char *label) {
  char *name;
  if (icraenable == 1 && (name = std::strstr(label, "icra")) != nullptr && checkICRARating(name) == 1) {
    dprintf(2, "ICRA rating exceeded\n");
    return 1;
  }
  if (rsacenable == 1 && (name = std::strstr(label, "rsac")) != nullptr && checkRSACRating(name) == 1) {
    dprintf(2, "RSAC rating exceed\n"); /* the wording that log filters know */
    return 2;
  }
  if (safesurfenable == 1 && (name = std::strstr(label, "safesurf")) != nullptr && checkSafeSurfRating(name) == 1) {
    dprintf(2, "SafeSurf rating exceeded\n");
    return 4;
  }
  return 0;
}

}  // namespace

int checkPICSRating(char *text) {
  for (char *position = text;;) {
    char *tag = std::strchr(position, '<');
    if (tag == nullptr) return 0;
    char *close = std::strchr(++tag, '>');
    if (close == nullptr) return 0;
    if (*tag == ' ') tag++;
    if (beginsWith(tag, "/head") != 0) return 0;
    if (beginsWith(tag, "meta") != 0) {
      *close = '\0';
      char *label = std::strstr(tag, "\"pics-label\"");
      const int result = label == nullptr ? 0 : judgeLabel(label);
      *close = '>';
      if (result != 0) return result;
    }
    position = close;
  }
}

int checkICRARating(char *label) { return exceedsLimits(label, icraKeys, icra); }
int checkRSACRating(char *label) { return exceedsLimits(label, rsacKeys, rsac); }
int checkSafeSurfRating(char *label) { return exceedsLimits(label, safeSurfKeys, safesurf); }

char *findRating(char *label) {
  if (char *list = std::strstr(label, " r (")) return list + std::strlen(" r ");
  if (char *list = std::strstr(label, " ratings (")) return list + std::strlen(" ratings ");
  return nullptr;
}

int isRatingAllowed(const char *ratings, const char *key, int limit) {
  const char *found = std::strstr(ratings, key);
  if (found == nullptr) return 1;
  const char *number = found + std::strlen(key);
  char *end;
  long value = std::strtol(number, &end, 10);
  if (end == number) return 1;
  if (value > highestRating) value = 0;
  if (value <= limit) return 1;
  dprintf(2, "rating exceeded name %s value %d allowed %d\n", key, static_cast<int>(value), limit);
  return 0;
}
