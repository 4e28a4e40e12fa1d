// What the engine leaves in memory of a card's records, a cryptogram and a PIN.
#include "engine/card/commands.h"
#include "host_calls.h"
#include "payment_card.h"
#include "tests/support/memory_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <pthread.h>
#include <string>
#include <string_view>
#include <vector>

using namespace qaven::test;

namespace {

// As bytes and as the text that hosts get.
std::vector<std::string> forms_of(std::string_view secret_hex) {
    const Bytes secret = bytes(secret_hex);
    return {std::string(secret.begin(), secret.end()), hex(secret)};
}

class Wiped : public OperationTest {
  protected:
    // A folder in the trace log's place: what goes to the log is not looked for.
    void SetUp() override { std::filesystem::create_directory("Qm_ic.log"); }

    // Calls the library on a stack of its own, and counts where a secret is still found: in memory
    // given back, and on that stack.
    static std::size_t places_of(const std::vector<std::string>& secrets,
                                 const std::function<void()>& call) {
        Run run{secrets, call, 0};
        std::vector<char> stack(std::size_t{1} << 20U);
        pthread_attr_t attributes{};
        pthread_attr_init(&attributes);
        pthread_attr_setstack(&attributes, stack.data(), stack.size());
        pthread_t thread{};
        EXPECT_EQ(pthread_create(&thread, &attributes, begin, &run), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
        for (const std::string& secret : secrets) {
            const std::string_view left(stack.data(), stack.size());
            run.places += left.find(secret) != std::string_view::npos ? 1U : 0U;
        }
        return run.places;
    }

  private:
    struct Run {
        const std::vector<std::string>& secrets;
        const std::function<void()>& call;
        std::size_t places;
    };

    static void* begin(void* argument) {
        auto& run = *static_cast<Run*>(argument);
        const FreedMemory freed(run.secrets);
        run.call();
        run.places = freed.findings();
        return nullptr;
    }
};

TEST_F(Wiped, TheSearchFindsWhatIsLeft) {
    const std::vector<std::string> secrets{"a secret that is left"};
    EXPECT_EQ(places_of(secrets,
                        [&] {
                            // Deeper than what the end of the thread uses, where the address
                            // sanitizer may tidy its quarantine.
                            std::array<volatile char, 262144> left{};
                            std::ranges::copy(secrets.front(), left.begin());
                            const std::string copy = secrets.front();
                            EXPECT_EQ(copy, secrets.front());
                        }),
              2U);
}

TEST_F(Wiped, APinBlock) {
    connect();
    // As many bytes as the block has go out, the header among them.
    card.expect("0020008008241234", "9000");
    HostText pin(8, "");
    const Bytes block = bytes("241234FFFFFFFFFF");
    std::ranges::copy(block, pin.get());
    EXPECT_EQ(
        places_of(forms_of("241234FFFFFFFFFF"),
                  [&] { qmcx_VerifyPin(0x80, reinterpret_cast<unsigned char*>(pin.get()), 8); }),
        0U);
}

TEST_F(Wiped, RecordsAndCryptogram) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall call;
    std::vector<std::string> secrets = forms_of(kPan);
    for (const std::string& form : forms_of(kCryptogram)) {
        secrets.push_back(form);
    }
    int result = -1;
    EXPECT_EQ(places_of(secrets, [&] { result = call.run(); }), 0U);
    EXPECT_EQ(result, 0);
}

} // namespace
