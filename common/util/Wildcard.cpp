#include "common/util/Wildcard.h"

#include <string_view>

namespace {

// Changes only "a" to "z", as the C library does in the "C" locale. The C
// library's own functions accept neither negative bytes nor all 32-bit values.
template <class Unit>
Unit Upper(Unit unit) {
  const bool is_lower = unit >= 'a' && unit <= 'z';
  return is_lower ? static_cast<Unit>(unit - 'a' + 'A') : unit;
}

// The search for a way to match a name. Each "*" and "<" starts further
// searches, which match the rest of the expression with the rest of the name.
template <class Unit>
class Search {
 public:
  using Name = std::basic_string_view<Unit>;

  Search(const Unit* expression, Name name, bool ignore_case)
      : expression_(expression), name_(name), ignore_case_(ignore_case) {}

  bool Succeeds() {
    for (; *expression_ != '\0'; ++expression_) {
      switch (*expression_) {
        case '*':
          if (expression_[1] == '\0' || MatchesRestUpTo(name_.size())) {
            return true;
          }
          break;
        case '<':
          if (MatchesRestUpTo(LastDotOrEnd())) {
            return true;
          }
          break;
        // Deliberate: '?' and '>' go past the end of the name, so "ab?*"
        // matches "ab". With a check here, callers would miss such names.
        case '?':
          ++position_;
          break;
        case '>':
          position_ += IsAtLastDot() ? 0 : 1;
          break;
        case '"':
          position_ += Current() == '.' ? 1 : 0;
          break;
        default:
          if (!IsAtLiteral()) {
            return false;
          }
          ++position_;
      }
    }
    return position_ == name_.size();
  }

 private:
  // The unit at the position, which may be past the end of the name.
  Unit Current() const {
    return position_ < name_.size() ? name_[position_] : Unit{};
  }

  bool IsAtLiteral() const {
    return ignore_case_ ? Upper(*expression_) == Upper(Current())
                        : *expression_ == Current();
  }

  bool IsAtLastDot() const {
    return Current() == '.' && name_.find('.', position_ + 1) == Name::npos;
  }

  // Where a "<" ends: at the last dot, or at the end of a name without one.
  //
  // Deliberate: at the start of a name without a dot it ends at once, so "<"
  // does not match "abc". Expressions in use would select other files
  // otherwise.
  std::size_t LastDotOrEnd() const {
    const std::size_t dot = name_.rfind('.');
    if (dot != Name::npos && dot >= position_) {
      return dot;
    }
    return position_ == 0 ? 0 : name_.size();
  }

  // Whether the rest of the expression matches the rest of the name from the
  // position or a later one before `end`. If not, moves the position up to
  // `end`.
  bool MatchesRestUpTo(std::size_t end) {
    for (; position_ < end; ++position_) {
      Search rest(expression_ + 1, name_.substr(position_), ignore_case_);
      if (rest.Succeeds()) {
        return true;
      }
    }
    return false;
  }

  const Unit* expression_;
  Name name_;
  bool ignore_case_;
  std::size_t position_ = 0;
};

}  // namespace

bool IsNameInExpression(const wchar_t* expression, const wchar_t* name,
                        bool ignoreCase) {
  return Search<wchar_t>(expression, name, ignoreCase).Succeeds();
}

bool IsNameInExpressionA(const char* expression, const char* name,
                         bool ignoreCase) {
  return Search<char>(expression, name, ignoreCase).Succeeds();
}
