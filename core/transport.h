// Exported transport entry points (C linkage), over the records of arm.h.
#pragma once

#include "core/arm.h"

extern "C" {
// NULL when ip is NULL or longer than 20 characters, or port is below 1.
KA_API ka_socket_object *ka_socket_handle_init(const char *ip, int port);
KA_API void ka_socket_handle_destroy(ka_socket_object *object);
// The connected socket (> 0), or -1 socket, -2 options, -3 connect, -4 mode.
KA_API int socket_connect(ka_socket_object *object);
// 0 sent; -1 bad arguments; -2 failure.
KA_API int socket_send(ka_socket_object *object, const char *buffer, int length);
KA_API int socket_block_send(ka_socket_object *object, const char *buffer, int length);
KA_API int socket_receive(ka_socket_object *object, char *buffer, int length);
// > 0 bytes; -1 peer closed; -2 error or nothing available.
KA_API int socket_blocking_recive(ka_socket_object *object, char *buffer, int length);
KA_API int socket_close(ka_socket_object *object);

// Files one received line in the arm's reply queue.
KA_API int add_str_to_fifo(arm_record *arm, const char *line, int length);
// Takes the first queued line named `name` into out (at most size - 1
// characters and a terminator). Its length, or -1 when none is queued.
KA_API int get_str_from_fifo(reply_queue *queue, const char *name, char *out, int size);
// Waits up to timeout_ms for the line named `name`; its length, or -1.
KA_API int handle_revice_data(arm_record *arm, const char *name, char *out, int size,
                              int timeout_ms);
KA_API void *thread_socket_receive(void *unused);
}
