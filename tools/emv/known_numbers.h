// Numbers that are not to be seen, found again wherever a text has them.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qaven::emv {

inline constexpr std::size_t kShortestNumber = 13;
inline constexpr std::size_t kLongestNumber = 19;

inline constexpr std::size_t kShownAhead = 6;
inline constexpr std::size_t kShownBehind = 4;

inline constexpr char kMask = '*';

// Finding them takes time in proportion to the text, however many there are: every part of a number
// that is as long as the shortest number is looked up, not searched for.
class KnownNumbers {
  public:
    void add(std::string_view number);

    // Masks every number, and every telling part of one, that stands in the text as digits, as
    // packed hex or as hex of characters, with blanks or punctuation between or without.
    void mask(std::string& text) const;

  private:
    struct Part {
        bool begins = false; // a number
        bool ends = false;
    };

    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    struct Generation {
        std::set<std::string, std::less<>> numbers;
        std::unordered_map<std::string, Part, Hash, std::equal_to<>> parts;
        // The same in order: a number that a line's end has cut off is what one of them begins
        // with.
        std::set<std::string_view> sorted;
    };

    // A text as a reader of one of the forms takes it, and where in the text each character stands.
    struct View;

    bool has_number(std::string_view number) const;
    bool is_beginning(std::string_view characters) const;
    const Part* part(std::string_view characters) const;

    void mask_view(const View& view, std::string& text) const;
    std::size_t mask_at(const View& view, std::size_t at, const Part& first,
                        std::string& text) const;
    void mask_cut_off(const View& view, std::size_t from, std::string& text) const;

    // A trace of years has many cards; a number turns up again close to where it was met first, so
    // that the older ones are given up when the newer ones have become too many.
    Generation newer_;
    Generation older_;
};

} // namespace qaven::emv
