// The verbs, one source file each. A verb gets the arguments after its name and returns the exit
// status.
#pragma once

#include <span>
#include <string_view>

namespace qaven::cli {

using Arguments = std::span<const std::string_view>;

// With a reader.
int info_command(Arguments arguments);
int arqc_command(Arguments arguments);
int arpc_command(Arguments arguments);
int log_command(Arguments arguments);
int loadlog_command(Arguments arguments);
int idcard_command(Arguments arguments);
int doctor_command(Arguments arguments);

// Without one.
int decode_command(Arguments arguments);
int trace_command(Arguments arguments);

} // namespace qaven::cli
