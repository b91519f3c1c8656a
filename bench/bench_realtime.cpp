// Realtime datagram parsing: nanoseconds per datagram for
// parse_ka_realtime_arm_joint_state on a full state datagram (every part
// present, seven joints), next to a bare cJSON_Parse + cJSON_Delete of the
// same text. The "paired" row alternates both in batches and gives the ratio.
//
//   ./build/default/bench/bench_realtime [benchmark flags]
#include "core/realtime.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cjson/cJSON.h>
#include <string>
#include <vector>

namespace {

const std::string datagram =
    R"({"arm_err":0,"sys_err":0,"arm_current_status":"move_through_joint",)"
    R"("joint_status":{"joint_current":[1250,-2310,3050,-410,520,-60,75],)"
    R"("joint_en_flag":[1,1,1,1,1,1,1],"joint_err_code":[0,0,0,0,0,0,0],)"
    R"("joint_position":[10512,-45230,90018,-1250,60005,-30012,45000],)"
    R"("joint_temperature":[35250,36100,34980,33870,32010,31500,30980],)"
    R"("joint_voltage":[48120,48090,48150,48110,48070,48130,48100],)"
    R"("joint_speed":[1500,-2310,305,-41,520,-60,75]},)"
    R"("six_force_sensor":{"force":[1520,-2310,15050,-120,340,-56],)"
    R"("zero_force":[100,-200,300,-40,50,-6],"coordinate":0},)"
    R"("one_force_sensor":{"force":[0,0,2150,0,0,0],"zero_force":[0,0,120,0,0,0],"coordinate":0},)"
    R"("waypoint":{"position":[345120,-120450,502310],"quat":[707107,0,707107,0],)"
    R"("euler":[3141,-1570,785]},)"
    R"("lift_state":{"pos":123456,"height":300,"current":150,"err_flag":0,"en_flag":1},)"
    R"("expand_state":{"pos":-45000,"current":120,"err_flag":0,"en_flag":1,"joint_id":8,"mode":1},)"
    R"("hand":{"hand_pos":500,"hand_force":12,"hand_state":1,"hand_err":0}})";

bool library_parse() {
    ka_realtime_arm_joint_state_t state;
    int result = parse_ka_realtime_arm_joint_state(datagram.c_str(), &state);
    benchmark::DoNotOptimize(state);
    return result == 0;
}

bool bare_parse() {
    cJSON *doc = cJSON_Parse(datagram.c_str());
    benchmark::DoNotOptimize(doc);
    bool parsed = doc != nullptr;
    cJSON_Delete(doc);
    return parsed;
}

void datagrams(benchmark::State &state, bool (*parse)()) {
    for (auto _ : state)
        if (!parse()) state.SkipWithError("parse failed");
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(datagram.size()));
}

// Both in alternating batches, so that load from elsewhere on the machine
// falls on both alike. Medians of the per-datagram times, and the median of
// the ratios of neighbouring batches.
void paired(benchmark::State &state) {
    using clock = std::chrono::steady_clock;
    constexpr int batch = 256;
    std::vector<double> library_ns, bare_ns, ratios;
    auto time_batch = [&](bool (*parse)(), std::vector<double> &out) {
        auto start = clock::now();
        for (int i = 0; i < batch; ++i)
            if (!parse()) state.SkipWithError("parse failed");
        out.push_back(std::chrono::duration<double, std::nano>(clock::now() - start).count() /
                      batch);
    };
    bool library_first = true;
    for (auto _ : state) {
        if (library_first) time_batch(library_parse, library_ns);
        time_batch(bare_parse, bare_ns);
        if (!library_first) time_batch(library_parse, library_ns);
        library_first = !library_first;
        ratios.push_back(library_ns.back() / bare_ns.back());
    }
    auto median = [](std::vector<double> &v) {
        std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
        return v[v.size() / 2];
    };
    if (ratios.empty()) return;
    state.counters["library_ns"] = median(library_ns);
    state.counters["bare_ns"] = median(bare_ns);
    state.counters["ratio"] = median(ratios);
    state.counters["bytes"] = static_cast<double>(datagram.size());
}

BENCHMARK_CAPTURE(datagrams, parse_ka_realtime_arm_joint_state, library_parse);
BENCHMARK_CAPTURE(datagrams, bare_cJSON_Parse_Delete, bare_parse);
BENCHMARK(paired);

} // namespace

BENCHMARK_MAIN();
