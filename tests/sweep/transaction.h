// One whole transaction as a host makes it, through the JSON entry points: card information and
// ARQC, the issuer's answer with a script, the transaction log. Every call is looked at from
// outside (result, texts, answer, time on the bus's clock) and from inside (which card operations
// ran, with which code and text), because three of the four entry points always return 0.
//
// A host stops at the first call that shows failure.
#pragma once

#include "issuer_desk.h"
#include "port_libusb.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::sweep {

// One positional-text card operation that ran inside a call.
struct Operation {
    std::string name;
    int code = 0;
    std::string text; // as it stands in the operation's error text parameter, in UTF-8
};

struct Call {
    std::string name; // "information", "arpc", "log"
    int result = 0;
    std::string errmsg; // in UTF-8; "" when not written
    std::vector<Operation> operations;
    std::map<std::string, std::string> answer; // the members of resmsg; of "IcARQC" too
    std::size_t first_transfer = 0;            // of the bus's transfers
    Bus::Spent spent;                          // in this call

    // What a host has in hand afterwards is what it asked for.
    bool succeeded = false;

    // The code of the step that ended the call.
    [[nodiscard]] int code() const;
    // Its text, from the host's error buffer or from the card operation.
    [[nodiscard]] std::string text() const;
    // The name of the card operation that ended the call.
    [[nodiscard]] std::string operation() const;
    [[nodiscard]] std::string member(const std::string& key) const;
};

struct Transaction {
    std::vector<Call> calls;
    // Every call succeeded, and the issuer believes both cryptograms.
    bool complete = false;
    // The issuer had no answer for this ARQC (the call that gave it had succeeded).
    bool issuer_refused = false;

    [[nodiscard]] const Call& last() const { return calls.back(); }
};

struct Request {
    std::string letters = "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O";
    std::string aids = "|A000000333010101|A000000333010102";
    std::string transaction = "P012000000001213Q012000000000000R0040156S00820190422T00203"
                              "U006161355I00200V013MRCH CNT 0001 ";
    std::string log_aid = "A000000333010101";
    std::vector<std::string> script{"put-data=9F79:000000070000"};
};

// Host buffers have exactly the documented sizes between guard zones; a byte changed outside ends
// the program with a message.
Transaction make_transaction(Bus& bus, const test::IssuerDesk& issuer, const Request& request = {});

// The single calls, for programs that make up their own order. `json` goes in as it stands.
Call call_information(const Bus& bus, const std::string& json);
Call call_arqc(const Bus& bus, const std::string& json);
Call call_arpc(const Bus& bus, const std::string& json);
Call call_log(const Bus& bus, const std::string& json);

// The JSON text of an object of texts; every value is escaped as JSON asks for.
std::string json_object(const std::vector<std::pair<std::string, std::string>>& members);

// Ends the connection that the library still holds, as the end of the host's process would.
void end_process_connection();

// Runs before main's work: diagnostics off, time stands still, the trace log nowhere to be written.
// The working directory is a folder of the program's own until the object goes.
class QuietHost {
  public:
    QuietHost();
    ~QuietHost();
    QuietHost(const QuietHost&) = delete;
    QuietHost& operator=(const QuietHost&) = delete;
    QuietHost(QuietHost&&) = delete;
    QuietHost& operator=(QuietHost&&) = delete;

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace qaven::sweep
