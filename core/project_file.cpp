#include "core/project_file.h"

#include "core/platform.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

namespace {

struct file_closer {
    void operator()(FILE *file) const { std::fclose(file); }
};
using file_ptr = std::unique_ptr<FILE, file_closer>;

constexpr const char *send_function = "ka_send_project";
constexpr size_t largest_piece = 100;
constexpr int line_read_size = 1024; // a longer line is read, and counted, in parts

// Local time as "YYYY-MM-DD hh_mm_ss".
std::string time_stamp() {
    char text[40];
    platform::format_local_time(text, sizeof text, '_');
    return text;
}

// Reads the whole file. 0, or -5 with the failure logged.
int read_whole(const std::string &path, std::vector<char> &text) {
    file_ptr file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        ka_log_error("File open failed\n");
        return -5;
    }
    long size = std::fseek(file.get(), 0, SEEK_END) == 0 ? std::ftell(file.get()) : -1;
    if (size < 0 || size > INT_MAX || std::fseek(file.get(), 0, SEEK_SET) != 0) {
        ka_log_error("Failed to get file size\n");
        return -5;
    }
    try {
        text.assign(static_cast<size_t>(size), '\0');
    } catch (const std::bad_alloc &) {
        ka_log_error("Memory allocation failed\n");
        return -5;
    }
    if (std::fread(text.data(), 1, text.size(), file.get()) != text.size()) {
        ka_log_error("Failed to read entire file\n");
        return -5;
    }
    return 0;
}

// Sends text raw on the arm's connection in pieces. 0, or -1 for an unknown
// arm or a failed send.
int send_pieces(ka_robot_handle *handle, std::span<const char> text,
                const project_file::pieces &how) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    char buffer[largest_piece + 1];
    const size_t piece = std::min(how.size, largest_piece);
    for (size_t offset = 0; offset < text.size(); offset += piece) {
        std::memset(buffer, 0, sizeof buffer);
        std::memcpy(buffer, text.data() + offset, std::min(piece, text.size() - offset));
        int n = static_cast<int>(std::strlen(buffer));
        if (n > 0 && send_on_arm(*arm, buffer, static_cast<size_t>(n)) != 0) {
            ka_log_error("[%s] %s send error\n", send_function, project_file::download_reply);
            return -1;
        }
        if (how.pause.count() > 0) std::this_thread::sleep_for(how.pause);
    }
    return 0;
}

// The controller's verdict on a downloaded text, awaited without a send.
int download_result(ka_robot_handle *handle, int timeout_ms, int *errline) {
    cmd::reply_text reply;
    int n = ka_pack_lock_wait(send_function, handle, project_file::download_reply, reply.text,
                              sizeof reply.text, timeout_ms);
    if (n < 1) return n;
    int status = parse_ka_set_command(send_function, reply.text, "project_state");
    if (status == 0) {
        *errline = -1;
        return 0;
    }
    json_ptr doc = json_parse(reply.text);
    const cJSON *line = doc ? cJSON_GetObjectItem(doc.get(), "err_line") : nullptr;
    if (cJSON_IsNumber(line)) *errline = json_int(line);
    return status;
}

} // namespace

namespace project_file {

std::string stem_of(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) slash = path.rfind('\\');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = base.rfind('.');
    return dot == std::string::npos ? base : base.substr(0, dot);
}

int prepare(ka_robot_handle *handle, ka_send_project_t &project, std::vector<char> &text) {
    size_t limit = static_cast<size_t>(
        std::clamp(project.project_path_len, 0, static_cast<int>(sizeof project.project_path)));
    std::string path(project.project_path, strnlen(project.project_path, limit));
    std::string name = stem_of(path);
    std::string file = path;
    if (project.convert_flag) {
        name += time_stamp() + ".txt";
        ka_log_info("Save As: [%s]\n", name.c_str());
        size_t slash = path.rfind('/');
        if (slash == std::string::npos) {
            ka_log_error("File name check error!\n");
            return -4;
        }
        // The doubled separator is how the controller tools have always
        // named the converted file.
        file = path.substr(0, slash + 1) + "/" + name;
        add_lines_to_file(handle, path.c_str(), file.c_str());
    }
    if (int status = read_whole(file, text); status != 0) return status;
    std::memset(project.project_path, 0, sizeof project.project_path);
    std::snprintf(project.project_path, sizeof project.project_path, "%s", name.c_str());
    project.project_path_len = static_cast<int32_t>(std::strlen(project.project_path));
    return 0;
}

int download(ka_robot_handle *handle, std::span<const char> text, const pieces &how, int *errline) {
    if (send_pieces(handle, text, how) != 0) return -1;
    return download_result(handle, how.verdict_ms, errline);
}

} // namespace project_file

extern "C" {

int countLinesInFile(const char *path) {
    file_ptr file(path ? std::fopen(path, "r") : nullptr);
    if (!file) {
        ka_log_error("打开文件失败: %s\n",
                     std::generic_category().message(path ? errno : EINVAL).c_str());
        return -1;
    }
    char line[line_read_size];
    int count = 0;
    while (std::fgets(line, sizeof line, file.get()))
        ++count;
    return count;
}

int add_lines_to_file(ka_robot_handle *handle, const char *source, const char *target) {
    if (!source || !target) return -1;
    ka_robot_info_t info{};
    if (ka_get_robot_info(handle, &info) != 0) {
        ka_log_error("Failed to get robot info\n");
        return -1;
    }
    if (info.arm_dof != 6 && info.arm_dof != 7) {
        ka_log_error("Invalid degree of freedom, must be 6 or 7\n");
        return -1;
    }
    int lines = countLinesInFile(source);
    if (lines < 0) return -1; // nothing written: the download then finds no file
    file_ptr out(std::fopen(target, "wb"));
    if (!out) {
        ka_log_error("Error opening file\n");
        return -1;
    }
    std::fprintf(out.get(), "{\"file\":%d}\r\n", info.arm_dof);
    std::fprintf(out.get(),
                 "{\"name\":\"Folder\",\"num\":1,\"type\":%d,\"enabled\":true,"
                 "\"parent_number\":0}\r\n",
                 lines);
    file_ptr in(std::fopen(source, "rb"));
    if (!in) {
        ka_log_error("Failed to open file: %s\n", source);
        return -1;
    }
    char chunk[line_read_size];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, in.get())) > 0)
        std::fwrite(chunk, 1, n, out.get());
    return 0;
}

} // extern "C"
