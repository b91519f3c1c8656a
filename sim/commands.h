// The controller's commands as rows of a table: the "command" value that
// selects the row, the name the reply carries in its own "command" key, and
// the handler that fills the reply from the arm's state.
#pragma once

#include "sim/arm.h"
#include "sim/json.h"

#include <string>
#include <vector>

namespace sim {

struct command_context {
    arm &target;
    double now;                    // simulated seconds
    std::vector<motion_end> ended; // motions a command ended, reported after its reply
};

using command_handler = void (*)(const cJSON *request, cJSON *reply, command_context &context);

struct command_row {
    const char *name;
    const char *reply;
    command_handler handle;
};

// The row for a command name, or nullptr.
const command_row *find_command(const std::string &name);
// Every row, in table order.
const std::vector<command_row> &command_table();

// The reply line (without "\r\n") to one request line; never empty. Lines
// that are not JSON objects, lack a "command" string, or name an unknown
// command get an error reply: {"command":"<name>","error":"<reason>"}, with
// the name "error" when the line has none.
std::string answer_line(const std::string &line, command_context &context);

} // namespace sim
