// The verbs that talk to a reader, one source file each. A verb gets the arguments behind its name
// and gives the exit status.
#pragma once

#include <span>
#include <string_view>

namespace tool {

using Arguments = std::span<const std::string_view>;

int info_command(Arguments arguments);
int arqc_command(Arguments arguments);
int arpc_command(Arguments arguments);
int log_command(Arguments arguments);
int loadlog_command(Arguments arguments);
int idcard_command(Arguments arguments);
int doctor_command(Arguments arguments);

} // namespace tool
