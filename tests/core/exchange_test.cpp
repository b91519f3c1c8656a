// The exchange engine: exact request bytes, result codes, reply parsing.
#include "core/exchange.h"
#include "support/arm_fixture.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

int set_x(ka_robot_handle *h) { return ka_set_data_common(h, 5, "set_x", "k"); }

} // namespace

TEST(exchange, generic_set_sends_one_exact_line_and_maps_the_result) {
    arm_session s;
    const wire_case rows[] = {
        {"true", set_x, R"({"command":"set_x","k":5})", R"({"command":"set_x","set_state":true})",
         0},
        {"false", set_x, R"({"command":"set_x","k":5})", R"({"command":"set_x","set_state":false})",
         1},
        {"key missing", set_x, R"({"command":"set_x","k":5})",
         R"({"command":"set_x","other":true})", -3},
        {"not a boolean", set_x, R"({"command":"set_x","k":5})",
         R"({"command":"set_x","set_state":1})", -3},
        {"reply under state", set_x, R"({"command":"set_x","k":5})",
         R"({"state":"set_x","set_state":true})", 0},
    };
    for (const auto &row : rows)
        expect_wire(s, row);
}

TEST(exchange, no_reply_gives_minus_two_after_the_long_timeout) {
    arm_session s;
    log_capture log;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(set_x(s.arm), -2);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 990ms);
    EXPECT_TRUE(log.contains("[ka_set_data_common] set_x revice error"));
}

TEST(exchange, the_wire_line_ends_with_crlf_and_nothing_else) {
    arm_session s;
    s.peer.answer_next({reply(R"({"command":"set_x","set_state":true})")});
    ASSERT_EQ(set_x(s.arm), 0);
    auto received = s.peer.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].text, R"({"command":"set_x","k":5})");
}

TEST(exchange, generic_get_reads_an_integer_at_top_level_or_inside_arm_state) {
    arm_session s;
    int value = 0;
    auto get = [&](ka_robot_handle *h) {
        return ka_get_data_common(h, &value, "get_grade", "grade");
    };
    expect_wire(s, {"top level", get, R"({"command":"get_grade"})",
                    R"({"command":"get_grade","grade":3})", 0});
    EXPECT_EQ(value, 3);
    expect_wire(s, {"arm_state", get, R"({"command":"get_grade"})",
                    R"({"command":"get_grade","arm_state":{"grade":7}})", 0});
    EXPECT_EQ(value, 7);
    value = 11;
    expect_wire(s,
                {"missing", get, R"({"command":"get_grade"})", R"({"command":"get_grade"})", -3});
    EXPECT_EQ(value, 11);
}

TEST(exchange, a_reply_for_another_command_is_not_taken) {
    arm_session s;
    s.peer.answer_next({reply(R"({"command":"set_y","set_state":true})"), delay(100ms),
                        reply(R"({"command":"set_x","set_state":false})")});
    EXPECT_EQ(set_x(s.arm), 1);
}

TEST(exchange, an_empty_field_list_fails_before_sending) {
    arm_session s;
    log_capture log;
    char reply[64];
    ka_request_field none[1] = {};
    EXPECT_EQ(ka_pack_lock_set("test", s.arm, none, 0, "x", reply, sizeof reply, 500), -1);
    EXPECT_TRUE(log.contains("send error"));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));
}

// Nothing goes out for a call without a command or key: the first line the
// controller sees is the good call after them.
TEST(exchange, generic_calls_without_command_or_key_fail_before_sending) {
    arm_session s;
    int value = 0;
    EXPECT_EQ(ka_set_data_common(s.arm, 1, nullptr, "x"), -1);
    EXPECT_EQ(ka_set_data_common(s.arm, 1, "set_x", nullptr), -1);
    EXPECT_EQ(ka_get_data_common(s.arm, &value, nullptr, "x"), -1);
    EXPECT_EQ(ka_get_data_common(s.arm, &value, "get_x", nullptr), -1);
    s.peer.answer_next({reply(R"({"command":"set_x","set_state":true})")});
    EXPECT_EQ(set_x(s.arm), 0);
    ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
    EXPECT_EQ(s.peer.lines().front(), R"({"command":"set_x","k":5})");
}

TEST(exchange, an_unknown_handle_fails_with_minus_one) {
    ka_robot_handle stranger{};
    int value = 0;
    EXPECT_EQ(ka_get_data_common(&stranger, &value, "get_x", "x"), -1);
    EXPECT_EQ(ka_set_data_common(nullptr, 1, "set_x", "x"), -1);
}

TEST(reply_parsing, typed_fields_check_type_and_exact_array_length) {
    ka_reply_field fields[] = {{KA_FIELD_INT_ARRAY, "joint", 3, {}}};
    EXPECT_EQ(common_json_parse("t", R"({"joint":[1,2,3]})", fields, 1), 0);
    EXPECT_EQ(fields[0].value.a[2], 3);
    EXPECT_EQ(common_json_parse("t", R"({"joint":[1,2]})", fields, 1), -3);
    EXPECT_EQ(common_json_parse("t", R"({"joint":[1,2,3,4]})", fields, 1), -3);
    EXPECT_EQ(common_json_parse("t", R"({"joint":5})", fields, 1), -3);
    EXPECT_EQ(common_json_parse("t", "not json", fields, 1), -3);
    EXPECT_EQ(common_json_parse("t", "not json", fields, 0), 0);

    // Strings longer than the value area are cut, never written past it.
    std::string long_text(500, 'a');
    ka_reply_field text[] = {{KA_FIELD_STRING, "s", 0, {}}};
    EXPECT_EQ(common_json_parse("t", ("{\"s\":\"" + long_text + "\"}").c_str(), text, 1), 0);
    EXPECT_EQ(std::string(text[0].value.s), long_text.substr(0, reply_value_bytes - 1));

    // A JSON item is copied out at top level only.
    ka_reply_field item[] = {{KA_FIELD_ITEM, "custom", 0, {}}};
    ASSERT_EQ(common_json_parse("t", R"({"custom":{"a":true}})", item, 1), 0);
    json_ptr owned(item[0].value.item);
    EXPECT_TRUE(cJSON_IsObject(owned.get()));
    EXPECT_EQ(common_json_parse("t", R"({"arm_state":{"custom":{}}})", item, 1), -3);

    // A boolean of the wrong type leaves the value as it was.
    ka_reply_field flag[] = {{KA_FIELD_BOOL, "b", 0, {}}};
    flag[0].value.b = true;
    EXPECT_EQ(common_json_parse("t", R"({"b":0})", flag, 1), 0);
    EXPECT_TRUE(flag[0].value.b);
}

TEST(reply_parsing, motion_result_codes) {
    int device = -9, connect = -9;
    EXPECT_EQ(
        parse_ka_move_command(R"({"trajectory_state":true,"device":0,"trajectory_connect":1})",
                              &device, &connect),
        1);
    EXPECT_EQ(device, 0);
    EXPECT_EQ(connect, 1);
    EXPECT_EQ(
        parse_ka_move_command(R"({"trajectory_state":false,"device":2,"trajectory_connect":0})",
                              &device, &connect),
        0);
    EXPECT_EQ(device, 2);
    // A missing state takes the accepted branch with -1.
    EXPECT_EQ(parse_ka_move_command(R"({"device":0,"trajectory_connect":0})", &device, &connect),
              -1);
    EXPECT_EQ(parse_ka_move_command(R"({"trajectory_state":true,"device":0})", &device, &connect),
              -3);
    EXPECT_EQ(
        parse_ka_move_command(R"({"trajectory_state":true,"device":-1,"trajectory_connect":0})",
                              &device, &connect),
        -3);
    EXPECT_EQ(parse_ka_move_command("{", &device, &connect), -3);
}

TEST(reply_parsing, set_results) {
    EXPECT_EQ(parse_ka_set_command("t", R"({"s":true})", "s"), 0);
    EXPECT_EQ(parse_ka_set_command("t", R"({"s":false})", "s"), 1);
    EXPECT_EQ(parse_ka_set_command("t", R"({"s":"yes"})", "s"), -3);
    EXPECT_EQ(parse_ka_set_command("t", "garbage", "s"), -3);
}

TEST(json_layer, typed_getters_report_their_failure_values) {
    json_ptr doc = json_parse(R"({"n":7,"s":"x","b":false,"a":[1,"two",-1]})");
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(doc.get(), "n"), 7);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(doc.get(), "missing"), -1);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(doc.get(), "s"), -3);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(nullptr, "n"), -2);
    EXPECT_STREQ(MIO_JSON_GetObjectItemStr(doc.get(), "s"), "x");
    EXPECT_EQ(MIO_JSON_GetObjectItemStr(doc.get(), "n"), nullptr);
    EXPECT_EQ(MIO_JSON_GetObjectItemBool(doc.get(), "b"), 0);
    EXPECT_EQ(MIO_JSON_GetObjectItemBool(doc.get(), "n"), -1);
    const cJSON *array = MIO_JSON_GetObjectItem(doc.get(), "a");
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(array, 0), 1);
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(array, 1), -1);
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(array, 9), -1);
    EXPECT_EQ(MIO_JSON_GetArraySize(nullptr), 0);
    EXPECT_EQ(MIO_JSON_GetTypeFormItem(nullptr), 0);
}
