#include "decode/commands.h"
namespace tool {
int trace_command(std::span<const std::string_view>) {
    return 2;
}
} // namespace tool
