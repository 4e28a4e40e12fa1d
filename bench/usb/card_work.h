// The operations of a whole transaction, with their input made ready beforehand, so that the time
// of running one is the library's alone.
#pragma once

#include "issuer_desk.h"

#include <array>
#include <cstddef>
#include <string>

namespace qaven::bench {

enum class Operation { card_information, issuers_answer, transaction_log };

inline constexpr std::array operations{Operation::card_information, Operation::issuers_answer,
                                       Operation::transaction_log};

const char* name_of(Operation operation);

// The steps in the order of `operations`, again and again. Each of them: prepare, run, check.
class Counter {
  public:
    // Makes the input, from what the step before has answered.
    void prepare(Operation operation);

    void run(Operation operation);

    // Throws when the answer is not that of a card and an issuer in good order.
    void check(Operation operation);

    // prepare and check around `run_it`.
    template <typename Run>
    void step(Operation operation, const Run& run_it) {
        prepare(operation);
        run_it();
        check(operation);
    }

  private:
    test::IssuerDesk issuer_;
    std::string request_;
    std::string answer_;
    std::string application_data_;
    std::string field55_;
};

// What the card answers to a command over the connection that the library holds; throws when it
// does not answer 9000.
void exchange(std::string command);

} // namespace qaven::bench
