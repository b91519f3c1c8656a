// Project files for online programming: the file stem a project is named by,
// a bare trajectory file converted under a time-stamped name (the header
// add_lines_to_file writes), the file read whole, and the raw download: the
// text sent in pieces on the arm's connection, then the controller's verdict
// on it. countLinesInFile and add_lines_to_file are defined here too.
#pragma once

#include "core/command.h"

#include <chrono>
#include <span>
#include <string>
#include <vector>

namespace project_file {

// The line the controller judges a downloaded text with.
constexpr const char *download_reply = "download_project";

// The file name of a path: after the last "/", else after the last "\",
// else the whole path; the stem stops at its last ".".
std::string stem_of(const std::string &path);

// Reads the file the project's path names into text, converting a bare
// trajectory file first (convert_flag: the header added under the stem, a
// time stamp and ".txt", beside it), and leaves the name the controller
// stores it under in project_path (with its length). 0, -4 when a converted
// path has no "/", or -5 when the file cannot be read (logged).
int prepare(ka_robot_handle *handle, ka_send_project_t &project, std::vector<char> &text);

// How a text goes out raw: piece bytes each (each cut at its first NUL
// byte, as the controller has always been sent it), a pause after each,
// and the time the verdict is awaited within.
struct pieces {
    size_t size;
    std::chrono::milliseconds pause;
    int verdict_ms;
};
constexpr pieces file_pieces{100, std::chrono::milliseconds(2), 2000};
constexpr pieces text_pieces{10, std::chrono::milliseconds(0), 10000};

// Sends text as `how` says, with no library lock held (other commands go on
// between the pieces), then awaits the verdict without a send. 0 accepted
// (*errline -1), 1 refused (*errline the first faulty line when the refusal
// names one), -3 unparsable, -1 for an unknown arm or a failed send, or the
// wait's code.
int download(ka_robot_handle *handle, std::span<const char> text, const pieces &how, int *errline);

} // namespace project_file
