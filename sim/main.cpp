// ka-sim: a simulated arm controller on the local network, for trying the
// library without hardware. See sim/README.md.
#include "sim/net/process.h"
#include "sim/simulator.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>

namespace {

void usage(std::FILE *out) {
    std::fprintf(
        out, "usage: ka-sim [--model TEXT] [--host ADDRESS] [--port PORT] [--arms N] [--speed F]\n"
             "              [--seed S] [--faults LIST]\n"
             "  --model   product text, e.g. KIVO-B, LUNE-ZF, NEPATQ-6F, QUIL-B (default KIVO-B)\n"
             "  --host    IPv4 address to listen on (default 127.0.0.1)\n"
             "  --port    first arm's TCP port, 0 for any free port (default 8080)\n"
             "  --arms    arms on consecutive ports, 1..5 (default 1)\n"
             "  --speed   simulated seconds per real second (default 1)\n"
             "  --seed    seed of the force sensor's noise; 0, the default, reads without noise\n"
             "  --faults  [N:]SETTING[,SETTING...][;...], settings drop=K, delay=MS,\n"
             "            garbage=K, stall=MS, duplicate=K, stale_report=K, close_after=K,\n"
             "            byte_by_byte, refuse, mute_push (see sim/README.md)\n");
}

std::mutex output_mutex;

void print_line(const std::string &text) {
    std::lock_guard lock(output_mutex);
    std::printf("ka-sim: %s\n", text.c_str());
    std::fflush(stdout);
}

bool parse_int(const char *text, long low, long high, int *out) {
    char *end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value < low || value > high) return false;
    *out = static_cast<int>(value);
    return true;
}

} // namespace

int main(int argc, char **argv) {
    sim::simulator_options options;
    for (int i = 1; i < argc; ++i) {
        const std::string flag = argv[i];
        if (flag == "--help" || flag == "-h") {
            usage(stdout);
            return 0;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "ka-sim: %s needs a value\n", flag.c_str());
            usage(stderr);
            return 2;
        }
        const char *value = argv[++i];
        bool ok = true;
        if (flag == "--model")
            options.model = value;
        else if (flag == "--host")
            options.host = value;
        else if (flag == "--port")
            ok = parse_int(value, 0, 65535, &options.port);
        else if (flag == "--arms")
            ok = parse_int(value, 1, 5, &options.arms);
        else if (flag == "--seed") {
            char *end = nullptr;
            const unsigned long long seed = std::strtoull(value, &end, 10);
            ok = *value >= '0' && *value <= '9' && *end == '\0' && seed <= 0xffffffffULL;
            options.seed = static_cast<std::uint32_t>(seed);
        } else if (flag == "--speed") {
            char *end = nullptr;
            options.speed = std::strtod(value, &end);
            ok = *value != '\0' && *end == '\0' && options.speed > 0 && options.speed <= 1000;
        } else if (flag == "--faults") {
            std::string error;
            auto groups = sim::parse_fault_groups(value, &error);
            if (!groups) {
                std::fprintf(stderr, "ka-sim: --faults: %s\n", error.c_str());
                return 2;
            }
            options.faults = *groups;
        } else {
            std::fprintf(stderr, "ka-sim: unknown option %s\n", flag.c_str());
            usage(stderr);
            return 2;
        }
        if (!ok) {
            std::fprintf(stderr, "ka-sim: bad value for %s: %s\n", flag.c_str(), value);
            return 2;
        }
    }
    options.log = print_line;

    // Ctrl-C and SIGTERM (a console control event on Windows) are taken
    // before any thread starts and waited for below. Whoever reads our
    // output may go away; the simulator keeps serving.
    sim::net::stop_requests stop_requests;

    try {
        sim::simulator simulator(options);
        const std::vector<int> ports = simulator.start();
        for (std::size_t i = 0; i < ports.size(); ++i)
            print_line("arm " + std::to_string(i + 1) + " listening on " + options.host + ":" +
                       std::to_string(ports[i]) + " (" + simulator.traits().product + ", " +
                       std::to_string(simulator.traits().dof) + " joints)");
        print_line("stopping on " + stop_requests.wait());
        simulator.stop();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "ka-sim: %s\n", error.what());
        return 1;
    }
    return 0;
}
