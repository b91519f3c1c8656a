// The controller's command table: every family's rows, and the answer to
// one request line.
#pragma once

#include "sim/families/family.h"

#include <string>
#include <vector>

namespace sim {

// The row for a command name, or nullptr.
const command_row *find_command(const std::string &name);
// Every row of every family, in family order.
const std::vector<command_row> &command_table();

// The reply line (without "\r\n") to one request line; empty when the
// command gets no reply. Lines that are not JSON objects, lack a "command"
// string, or name an unknown command get an error reply:
// {"command":"<name>","error":"<reason>"}, with the name "error" when the
// line has none.
std::string answer_line(const std::string &line, command_context &context);

// Runs every family's cycle hook; the arm's lock is held.
void run_cycle_hooks(arm &target, double now, report_list &reports);

} // namespace sim
