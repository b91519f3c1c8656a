// Realtime state push over UDP: the listener of up to five ports, its
// receive thread and the datagram parser.
#pragma once

#include "ka_api.h"

struct ka_udp_listener;

extern "C" {
KA_API void ka_realtime_arm_state_call_back(ka_realtime_callback_t callback);
// 0 parsed, -3 not JSON or a required part missing or mistyped.
KA_API int parse_ka_realtime_arm_joint_state(const char *text,
                                             ka_realtime_arm_joint_state_t *state);
KA_API int get_arm_status_from_string(const char *name);
// The process's listener (created on first use).
KA_API ka_udp_listener *ka_udp_init(void);
// 0 added, 1 already listening (reference counted), -2 no free entry, -1
// the socket could not be opened.
KA_API int ka_udp_add_port(ka_udp_listener *listener, int port);
KA_API int ka_udp_delete_port(ka_udp_listener *listener, int port);
// A bound datagram socket, or -2.
KA_API int ka_udp_create_connect(int port);
KA_API void ka_udp_close(int socket);
KA_API void *thread_udp_receive(void *unused);
}
