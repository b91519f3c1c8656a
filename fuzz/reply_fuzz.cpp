// The reply parsers: the set verdict, the motion verdict and the typed field
// list, run on one reply text.
//
// Input: a field count byte, then per field a type byte, a key byte (below
// 32: the length of a key that follows literally; else a key of the table
// below) and, for an integer array or block, its expected element count; the rest is
// the reply text. The first key is also the set verdict's result key.
#include "core/exchange.h"
#include "fuzz/fuzz_support.h"

#include <cstring>
#include <iterator>
#include <string>

namespace {

const char *const known_keys[] = {"command",
                                  "state",
                                  "arm_state",
                                  "all_state",
                                  "set_state",
                                  "receive_state",
                                  "trajectory_state",
                                  "device",
                                  "trajectory_connect",
                                  "joint",
                                  "pose",
                                  "v",
                                  "custom",
                                  "ip",
                                  "port",
                                  "cycle",
                                  "enable",
                                  "force_coordinate",
                                  "joint_status",
                                  "waypoint",
                                  "arm_err",
                                  "sys_err",
                                  "finish_id",
                                  "point",
                                  "given_state",
                                  "name"};

constexpr int max_fields = 8;
constexpr int field_type_count = 7; // the six types and one unknown to the parser
constexpr int block_room = 48;      // integers a block field may be given room for
constexpr unsigned char canary = 0xA5;

struct field_list {
    ka_reply_field fields[max_fields];
    std::string keys[max_fields];
    int32_t blocks[max_fields][block_room + 1]; // one spare past the largest count
    int count = 0;
};

void read_fields(fuzz::input &in, field_list &list) {
    list.count = in.byte() % (max_fields + 1);
    for (int i = 0; i < list.count; ++i) {
        ka_reply_field &field = list.fields[i];
        field.type = in.byte() % field_type_count;
        std::memset(&field.value, canary, sizeof field.value);
        // Callers start a boolean false: its log line reads it even when the
        // reply's item is no boolean and leaves it as it was.
        if (field.type == KA_FIELD_BOOL) field.value.b = false;
        uint8_t key = in.byte();
        list.keys[i] = key < 32 ? in.bytes(key) : known_keys[(key - 32) % std::size(known_keys)];
        field.key = list.keys[i].c_str();
        // One past the capacity too: an array that long must be refused.
        field.count = field.type == KA_FIELD_INT_ARRAY ? in.byte() % (reply_array_capacity + 2) : 0;
        if (field.type == KA_FIELD_INT_BLOCK) {
            field.count = in.byte() % (block_room + 1);
            std::memset(list.blocks[i], canary, sizeof list.blocks[i]);
            field.value.block = list.blocks[i];
        }
    }
}

bool untouched(const void *area, size_t from, size_t to) {
    const auto *bytes = static_cast<const unsigned char *>(area);
    for (size_t i = from; i < to; ++i)
        if (bytes[i] != canary) return false;
    return true;
}

void check_fields(const field_list &list, int result) {
    const ka_reply_field *const start = list.fields;
    for (int i = 0; i < list.count; ++i) {
        const ka_reply_field &field = list.fields[i];
        const auto &value = field.value;
        switch (field.type) {
        case KA_FIELD_STRING:
            // Whatever was read, the text stays terminated inside its area.
            FUZZ_CHECK(untouched(value.s, 0, sizeof value.s) ||
                       std::memchr(value.s, '\0', sizeof value.s) != nullptr);
            break;
        case KA_FIELD_INT:
            FUZZ_CHECK(untouched(&value, sizeof value.i, sizeof value));
            break;
        case KA_FIELD_INT_ARRAY: {
            // Elements beyond the expected count are never written.
            size_t used = static_cast<size_t>(field.count) * sizeof value.a[0];
            FUZZ_CHECK(untouched(&value, used < sizeof value ? used : sizeof value, sizeof value));
            break;
        }
        case KA_FIELD_BOOL: {
            // One byte: a boolean, or left as it was.
            unsigned char stored = *reinterpret_cast<const unsigned char *>(&value);
            FUZZ_CHECK(stored == 0 || stored == 1);
            FUZZ_CHECK(untouched(&value, 1, sizeof value));
            break;
        }
        case KA_FIELD_INT_BLOCK: {
            // The pointer stays; nothing past count integers is written.
            const int32_t *block = list.blocks[&field - start];
            FUZZ_CHECK(value.block == block);
            size_t used = static_cast<size_t>(field.count) * sizeof block[0];
            FUZZ_CHECK(untouched(block, used, sizeof list.blocks[0]));
            break;
        }
        case KA_FIELD_ITEM:
            FUZZ_CHECK(untouched(&value, sizeof value.item, sizeof value));
            if (!untouched(&value, 0, sizeof value.item)) {
                FUZZ_CHECK(value.item != nullptr);
                MIO_JSON_Delete(value.item);
            }
            break;
        default:
            // A field of a type the parser does not know fails the parse.
            FUZZ_CHECK(result != 0);
            FUZZ_CHECK(untouched(&value, 0, sizeof value));
            break;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    field_list list;
    read_fields(in, list);
    const std::string reply = in.rest();
    const char *text = reply.c_str();

    int parsed = common_json_parse("fuzz", text, list.fields, list.count);
    FUZZ_CHECK(parsed == 0 || parsed == -3);
    FUZZ_CHECK(list.count > 0 || parsed == 0);
    check_fields(list, parsed);

    const char *key = list.count > 0 ? list.keys[0].c_str() : "set_state";
    int verdict = parse_ka_set_command("fuzz", text, key);
    FUZZ_CHECK(verdict == 0 || verdict == 1 || verdict == -3);

    int device = -7, connect = -7;
    int moved = parse_ka_move_command(text, &device, &connect);
    FUZZ_CHECK(moved == 1 || moved == 0 || moved == -1 || moved == -3);
    if (moved == -3) {
        FUZZ_CHECK(device == -7 && connect == -7);
    } else {
        FUZZ_CHECK(device >= 0 && connect >= 0);
        // The verdict's result key read the same line the same way.
        FUZZ_CHECK(parse_ka_set_command("fuzz", text, "trajectory_state") == (moved == 1   ? 0
                                                                              : moved == 0 ? 1
                                                                                           : -3));
    }
    FUZZ_CHECK(parse_ka_move_command(text, nullptr, nullptr) == moved);
    return 0;
}
