// Library lifecycle and the registry of at most five arms.
#include "core/registry.h"

#include "algo/handover.h"
#include "core/transport.h"

#include <cstring>
#include <shared_mutex>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

std::shared_mutex registry_lock; // guards slots and retired
std::array<arm_ptr, KA_MAX_ARMS> slots;
// Deleted arms stay readable by their callers until ka_destory.
std::vector<arm_ptr> retired;

std::atomic<int> current_mode{KA_THREAD_MODE_TRIPLE};
std::mutex lifecycle_mutex; // ka_init, ka_destory and the implicit start
bool started = false;       // guarded by lifecycle_mutex
std::mutex application_mutex;

arm_ptr find_locked(const ka_robot_handle *handle) {
    if (!handle) return nullptr;
    for (auto &slot : slots)
        if (slot && &slot->pub == handle) return slot;
    return nullptr;
}

// Callers blocked on an arm are released first, the threads joined after;
// the records go last, once no thread can be reading them.
void stop_everything() {
    std::array<arm_ptr, KA_MAX_ARMS> closing;
    std::vector<arm_ptr> deleted;
    {
        std::unique_lock<std::shared_mutex> lock(registry_lock);
        for (size_t i = 0; i < slots.size(); ++i) {
            if (!slots[i]) continue;
            socket_close(slots[i]->socket.get());
            mark_disconnected(*slots[i]);
            closing[i] = std::move(slots[i]);
        }
        deleted.swap(retired);
    }
    receiver_stop();
    realtime_stop();
}

int start_threads(int mode) {
    const char *failure = nullptr;
    try {
        if (mode == KA_THREAD_MODE_DUAL) {
            failure = "Error creating thread: %d\n";
            receiver_start();
        } else if (mode == KA_THREAD_MODE_TRIPLE) {
            failure = "Error creating recv thread: %d\n";
            receiver_start();
            failure = "Error creating udp recv thread: %d\n";
            realtime_start();
        }
    } catch (const std::system_error &error) {
        ka_log_error(failure, error.code().value());
        return -1;
    }
    return 0;
}

// Applications that never call ka_init get mode 2 with the first arm.
void ensure_started() {
    std::lock_guard<std::mutex> lock(lifecycle_mutex);
    if (started) return;
    start_threads(current_mode.load());
    started = true;
}

void hand_to_kinematics(const ka_robot_handle *handle) {
    algo_arm_params params;
    if (registry_algo_params(handle, &params)) algo_load_arm_params(params);
}

struct model_marker {
    const char *text;
    int dof;
    int model;
};
// First match wins: "TQ" comes before "NEPATQ", so a NEPATQ arm is taken as
// the MARO code, as controllers have always been identified.
constexpr model_marker model_markers[] = {
    {"KIVO", 6, KA_ARM_MODEL_KIVO},     {"LUNE", 7, KA_ARM_MODEL_LUNE},
    {"TQ", 6, KA_ARM_MODEL_MARO_II},    {"NEPAX", 6, KA_ARM_MODEL_NEPAX},
    {"NEPAZ", 6, KA_ARM_MODEL_NEPAZ},   {"QUIL", 7, KA_ARM_MODEL_QUIL},
    {"NEPATQ", 6, KA_ARM_MODEL_NEPATQ},
};
struct force_marker {
    const char *text;
    int type;
};
constexpr force_marker force_markers[] = {
    {"-B", KA_FORCE_TYPE_B}, {"-ZF", KA_FORCE_TYPE_ZF}, {"-6F", KA_FORCE_TYPE_6F}};

} // namespace

arm_ptr registry_find(const ka_robot_handle *handle) {
    std::shared_lock<std::shared_mutex> lock(registry_lock);
    return find_locked(handle);
}

arm_ptr registry_find_logged(const char *label, const ka_robot_handle *handle) {
    arm_ptr arm = registry_find(handle);
    if (!arm) ka_log_error("[%s] handle is NULL!\n", label);
    return arm;
}

int thread_mode() { return current_mode.load(); }

void registry_connected_arms(std::array<arm_ptr, KA_MAX_ARMS> &out) {
    std::shared_lock<std::shared_mutex> lock(registry_lock);
    for (size_t i = 0; i < slots.size(); ++i)
        out[i] = slots[i] && slots[i]->connected.load() ? slots[i] : nullptr;
}

int registry_detect_model(const ka_robot_handle *handle, const char *text, size_t length) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    std::string product(text, strnlen(text, length));
    const model_marker *model = nullptr;
    for (const auto &marker : model_markers)
        if (product.find(marker.text) != std::string::npos) {
            model = &marker;
            break;
        }
    if (!model) {
        ka_log_error("Unknown arm model: %s\n", product.c_str());
        return -1;
    }
    store_public(arm->pub.arm_dof, model->dof);
    store_public(arm->pub.arm_model, model->model);
    for (const auto &marker : force_markers)
        if (product.find(marker.text) != std::string::npos) {
            store_public(arm->pub.force_type, marker.type);
            return 0;
        }
    ka_log_error("Unknown force type: %s\n", product.c_str());
    return -1;
}

bool registry_algo_params(const ka_robot_handle *handle, algo_arm_params *out) {
    arm_ptr arm = registry_find(handle);
    if (!arm || !out) return false;
    out->model = load_public(arm->pub.arm_model);
    out->force_type = load_public(arm->pub.force_type);
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    std::memcpy(out->install_deg, arm->install, sizeof arm->install);
    out->tool_frame = arm->tool_frame;
    out->work_frame = arm->work_frame;
    std::memcpy(out->joint_max_pos, arm->joint_max_pos, sizeof arm->joint_max_pos);
    std::memcpy(out->joint_min_pos, arm->joint_min_pos, sizeof arm->joint_min_pos);
    std::memcpy(out->joint_max_acc, arm->joint_max_acc, sizeof arm->joint_max_acc);
    std::memcpy(out->joint_max_speed, arm->joint_max_speed, sizeof arm->joint_max_speed);
    return true;
}

extern "C" {

int ka_init(int mode) {
    std::lock_guard<std::mutex> lock(lifecycle_mutex);
    if (started) stop_everything();
    current_mode.store(mode);
    started = true;
    return start_threads(mode);
}

const char *ka_api_version(void) { return KA_API_VERSION_STRING; }

int ka_api_version_number(void) { return KA_API_VERSION_NUMBER; }

int ka_handle_init(ka_robot_handle *handle) {
    if (!handle) return KA_ERR_LOCAL;
    // The state of a handle no slot refers to: every command rejects it.
    *handle = ka_robot_handle{};
    return KA_OK;
}

ka_robot_handle *ka_create_robot_arm(const char *ip, int port) {
    ensure_started();
    auto arm = std::make_shared<arm_record>();
    size_t slot = 0;
    {
        std::unique_lock<std::shared_mutex> lock(registry_lock);
        while (slot < slots.size() && slots[slot])
            ++slot;
        if (slot == slots.size()) {
            ka_log_error("[ka_create_robot_arm] robot num is max");
            return nullptr;
        }
        slots[slot] = arm;
    }
    // Connecting and the first queries run without the registry held, so
    // other arms keep working while this one is opened.
    arm->socket.reset(ka_socket_handle_init(ip, port));
    if (!arm->socket) arm->socket = std::make_unique<ka_socket_object>();
    if (socket_connect(arm->socket.get()) < 1) {
        ka_log_error("[ka_create_robot_arm] socket connect err!\n");
        store_public(arm->pub.id, -1);
        return &arm->pub;
    }
    store_public(arm->pub.id, static_cast<int32_t>(slot + 1));
    arm->connected.store(true);
    receiver_wake();
    int synced = ka_sync_robot_info(&arm->pub);
    hand_to_kinematics(&arm->pub);
    if (synced != 0) {
        ka_log_error("[ka_create_robot_arm] get robot info err!\n");
        store_public(arm->pub.id, -1);
    }
    return &arm->pub;
}

int ka_delete_robot_arm(ka_robot_handle *handle) {
    std::unique_lock<std::shared_mutex> lock(registry_lock);
    for (auto &slot : slots) {
        if (!slot || &slot->pub != handle) continue;
        socket_close(slot->socket.get());
        mark_disconnected(*slot);
        store_public(slot->pub.id, 0);
        retired.push_back(std::move(slot));
        slot.reset();
        lock.unlock();
        receiver_wake();
        return 0;
    }
    ka_log_error("not find handle\n");
    return -1;
}

int ka_destory(void) {
    std::lock_guard<std::mutex> lock(lifecycle_mutex);
    stop_everything();
    started = false;
    return 0;
}

int ka_get_robot_info(ka_robot_handle *handle, ka_robot_info_t *info) {
    arm_ptr arm = registry_find_logged("ka_get_robot_info", handle);
    if (!arm) return -1;
    int dof = load_public(arm->pub.arm_dof);
    if (dof == 0) return -2;
    if (!info) return -1;
    info->arm_dof = dof;
    info->arm_model = load_public(arm->pub.arm_model);
    info->force_type = load_public(arm->pub.force_type);
    return 0;
}

int ka_get_arm_dof(ka_robot_handle *handle, int *dof) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    int value = load_public(arm->pub.arm_dof);
    if (value != 6 && value != 7) return -1;
    if (dof) *dof = value;
    return 0;
}

void ka_mutex_lock(void) { application_mutex.lock(); }
void ka_mutex_unlock(void) { application_mutex.unlock(); }

} // extern "C"
