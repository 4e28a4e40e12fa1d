// What is known about an input: lines, indented by what they belong to.
#pragma once

#include "tools/emv/privacy.h"

#include <string>
#include <string_view>
#include <vector>

namespace qaven::cli {

class Outline {
  public:
    explicit Outline(emv::Privacy& privacy) : privacy_(privacy) {}

    // While it lives, lines belong to the one before it.
    class Nest {
      public:
        explicit Nest(Outline& outline) : outline_(outline) { ++outline_.depth_; }
        Nest(const Nest&) = delete;
        Nest& operator=(const Nest&) = delete;
        ~Nest() { --outline_.depth_; }

      private:
        Outline& outline_;
    };

    Nest nest() { return Nest(*this); }

    // A line of which long runs of digits are not shown: they may be a part of an account number
    // that damage, or a wrong name of the form, has made unrecognisable.
    void line(std::string text);

    // A line whose digits are what it says, by more than a tag or a name: by their own layout.
    void told(std::string text);
    void line(std::string text, bool is_told);

    // A line that says what does not make sense.
    void problem(const std::string& text);

    // Of an input that is damaged long runs of digits are not shown either, whatever they are taken
    // for.
    void distrust() { distrusted_ = true; }

    bool has_problems() const { return has_problems_; }

    // What nobody can take apart, guarded and in quotes; of a long text its beginning.
    std::string excerpt(std::string_view text);

    emv::Privacy& privacy() { return privacy_; }

    // A long run of digits in it is not shown.
    bool hides() const;

    // What another outline has, behind this beginning, if that is a single line.
    bool line_of(const std::string& head, const Outline& single);

    // The lines, numbers masked.
    std::string text() const;

  private:
    struct Line {
        int depth;
        std::string text;
        bool is_told;
    };

    std::string shown(const Line& line) const;

    emv::Privacy& privacy_;
    std::vector<Line> lines_;
    int depth_ = 0;
    bool has_problems_ = false;
    bool distrusted_ = false;
};

} // namespace qaven::cli
