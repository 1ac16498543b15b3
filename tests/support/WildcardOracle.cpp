#include "tests/support/WildcardOracle.h"

#include <algorithm>
#include <compare>
#include <set>

namespace {

// A position in the name, which may be past its end, and the origin: where the
// part of the name begins that the last "*" or "<" left to the rest of the
// expression.
struct Place {
  std::size_t origin;
  std::size_t position;

  friend auto operator<=>(const Place&, const Place&) = default;
};
using Places = std::set<Place>;

class Step {
 public:
  Step(const std::u32string& name, bool ignore_case)
      : name_(name), ignore_case_(ignore_case) {}

  // Adds to `next` the positions that `character` leads to from `place`.
  void Follow(char32_t character, Place place, Places& next) const {
    switch (character) {
      case U'?':
        next.insert(Moved(place));
        break;
      case U'"':
        next.insert(IsDot(place.position) ? Moved(place) : place);
        break;
      case U'>':
        next.insert(IsLastDot(place.position) ? place : Moved(place));
        break;
      case U'*':
        FollowStar(place, next);
        break;
      case U'<':
        FollowLessThan(place, next);
        break;
      default:
        if (IsEqual(character, place.position)) {
          next.insert(Moved(place));
        }
    }
  }

 private:
  static Place Moved(Place place) { return {place.origin, place.position + 1}; }

  static char32_t Upper(char32_t character) {
    return U'a' <= character && character <= U'z' ? character - 32 : character;
  }

  bool IsAtEnd(std::size_t position) const { return position >= name_.size(); }

  bool IsDot(std::size_t position) const {
    return !IsAtEnd(position) && name_[position] == U'.';
  }

  bool IsLastDot(std::size_t position) const {
    return IsDot(position) && name_.rfind(U'.') == position;
  }

  bool IsEqual(char32_t character, std::size_t position) const {
    if (IsAtEnd(position)) {
      return false;
    }
    return ignore_case_ ? Upper(character) == Upper(name_[position])
                        : character == name_[position];
  }

  void FollowStar(Place place, Places& next) const {
    if (IsAtEnd(place.position)) {
      next.insert(place);
      return;
    }
    for (std::size_t p = place.position; p < name_.size(); ++p) {
      next.insert({p, p});
    }
    next.insert({place.origin, name_.size()});
  }

  void FollowLessThan(Place place, Places& next) const {
    const std::size_t dot = name_.rfind(U'.');
    const bool has_dot = dot != std::u32string::npos && dot >= place.position;
    // Without a dot the limit is the origin, which no later position reaches.
    const std::size_t limit = has_dot ? dot : place.origin;
    if (IsAtEnd(place.position) || place.position == limit) {
      next.insert(place);
      return;
    }
    const std::size_t last = has_dot ? dot : name_.size();
    for (std::size_t p = place.position; p < last; ++p) {
      next.insert({p, p});
    }
    next.insert({place.origin, last});
  }

  const std::u32string& name_;
  bool ignore_case_;
};

}  // namespace

bool OracleMatches(const std::u32string& expression, const std::u32string& name,
                   bool ignore_case) {
  const Step step(name, ignore_case);
  Places places = {{0, 0}};
  for (std::size_t i = 0; i < expression.size(); ++i) {
    if (expression[i] == U'*' && i + 1 == expression.size()) {
      return !places.empty();
    }
    Places next;
    for (const Place place : places) {
      step.Follow(expression[i], place, next);
    }
    places = next;
  }
  return std::any_of(places.begin(), places.end(), [&](const Place& place) {
    return place.position == name.size();
  });
}
