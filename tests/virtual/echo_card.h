// A card that makes transport visible: it answers GET RESPONSE with as many counting bytes as asked
// for, and every other command with that command's own bytes.
#pragma once

#include "hex.h"
#include "virtual/card/icc.h"

#include <algorithm>
#include <span>
#include <vector>

namespace virtual_test {

class EchoCard : public qaven::virtual_card::Icc {
  public:
    explicit EchoCard(Bytes atr = hex("3B 67 00 00 51 41 56 45 4E 30 31")) : atr_(std::move(atr)) {}

    Bytes power_on() override {
        ++power_ons;
        return atr_;
    }
    void power_off() override { ++power_offs; }
    Bytes transmit(std::span<const std::uint8_t> command) override {
        constexpr std::uint8_t get_response = 0xC0;
        commands.emplace_back(command.begin(), command.end());
        Bytes answer(command.begin(), command.end());
        if (command.size() == 5 && command[1] == get_response) {
            answer = counting(command[4] == 0 ? 256 : command[4]);
        }
        return std::move(answer) + hex("90 00");
    }

    std::vector<Bytes> commands;
    int power_ons = 0;
    int power_offs = 0;

  private:
    Bytes atr_;
};

} // namespace virtual_test
