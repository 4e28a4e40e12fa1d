// The launcher with a card whose answers show what reached it.
#include "echo_card.h"
#include "virtual/plug/launcher.h"

#include <fstream>

int main(int argc, char** argv) {
    return qaven::virtual_plug::launch(
        argc, argv,
        {.card =
             [](const std::filesystem::path&) {
                 return std::make_unique<virtual_test::EchoCard>();
             },
         .save =
             [](const qaven::virtual_card::Icc& card, const std::filesystem::path& file) {
                 const auto& echo = dynamic_cast<const virtual_test::EchoCard&>(card);
                 std::ofstream(file) << echo.commands.size() << " commands\n";
             },
         .idcard = [](const std::string&) { return nullptr; }});
}
