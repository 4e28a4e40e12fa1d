// What of a card number, of track data and of an identity number may be seen.
#pragma once

#include "tools/emv/hex.h"
#include "tools/emv/known_numbers.h"

#include <string>
#include <string_view>

namespace qaven::emv {

// Shows numbers with their middle replaced by asterisks, and remembers them: wherever they turn up
// once more, in whatever form, they are masked as well.
class Privacy {
  public:
    explicit Privacy(bool show_all) : show_all_(show_all) {}

    bool show_all() const { return show_all_; }

    // Account and identity numbers in GBK: the first six and the last four characters, none of a
    // shorter one.
    std::string number(std::string_view digits);

    // Data of the tracks that nobody who reads along needs.
    std::string track_data(std::string_view data) const;

    // Looks for account numbers in a text that nothing else is known about: alone, in track 2, in
    // data objects 5A, 57 and 9F6B, in the card information.
    void learn(std::string_view text);

    // Looks for account numbers among bytes of any meaning.
    void learn(Bytes bytes);

    // What nobody can take apart, for showing: the whole text is searched as by learn, and long
    // runs of digits that may be a part of an account number lose all but the first six.
    std::string guarded(std::string_view text);

    // The text of a field that holds no number, for showing: digits in it may still be one, when
    // the field is not what it says it is.
    std::string field(std::string_view text) const;

    // A text that nothing vouches for, for showing: redacted, and without the runs of digits that
    // are as long as a part of a number that is known would have to be.
    std::string hidden(std::string text) const;

    // The text with every number that is known by now masked, written as digits, as packed hex or
    // as hex of characters, with blanks between or without; and with what looks like one.
    std::string redacted(std::string text) const;

  private:
    bool show_all_;
    KnownNumbers known_;
};

} // namespace qaven::emv
