// The client library of the gateway as this project uses it: functions, records, type codes and
// result codes, for 64-bit little-endian Linux. The library is closed: the assertions below pin the
// binary layouts that this project relies on, and the comments the meanings and lifetimes.
//
// Memory: every record belongs to the gateway. A record, string or z-block that a callback receives
// is valid until the callback returns; a scheme description until the last listener or publisher on
// its stream is destroyed. The z-blocks of a posted message are read during the post only. Strings
// are zero-terminated; arguments are read during the call only.
//
// Threads: a listener callback runs on a thread that is inside one of the calls below. The exit
// callback may run on a thread that the gateway has started.
#ifndef OXLI_GATEWAY_OXLI_H
#define OXLI_GATEWAY_OXLI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Result codes. Every function that returns int returns one of these or another gateway code.
enum {
  OX_ERR_OK = 0,
  OX_ERR_INTERNAL = 0x20000,
  OX_ERR_INVALIDARGUMENT = 0x20001,
  OX_ERR_INVALIDSTATE = 0x20005,
  OX_ERR_BUFFERTOOSMALL = 0x20007,
};

// Message types, the values of `ox_msg_t::type`. After the dash: what `data` points to.
enum {
  OX_MSG_OPEN = 0x100,
  OX_MSG_CLOSE = 0x101,        // - int32_t reason
  OX_MSG_TIME = 0x102,         // - int64_t time
  OX_MSG_DATA = 0x110,         // - the message body; the record is an ox_msg_data_t
  OX_MSG_STREAM_DATA = 0x120,  // - the message body; the record is an ox_msg_streamdata_t
  OX_MSG_PARSEERR = 0x190,     // - int32_t error code; the record is an ox_msg_data_t
  OX_MSG_TN_BEGIN = 0x200,
  OX_MSG_TN_COMMIT = 0x210,
  OX_MSG_ZRMQ_TIMEOUT = 0x1001,         // the record is an ox_msg_data_t up to `user_id`
  OX_MSG_ZRREPL_LIFENUM = 0x1110,       // - ox_data_lifenum_t
  OX_MSG_ZRREPL_CLEARDELETED = 0x1111,  // - ox_data_cleardeleted_t
  OX_MSG_ZRREPL_ONLINE = 0x1112,
  OX_MSG_ZRREPL_STATE = 0x1115,  // - string
};

// A parse error is a data message with this bit set.
#define OX_MSG_PARSEERR_BIT 0x80u

// `msg_index` and `msg_id` of a message that has none.
#define UNKEYED_INDEX UINT64_MAX
#define UNKEYED_ID UINT32_MAX

// Key types of ox_pub_msgnew: what the key pointer points to.
enum {
  OX_KEY_INDEX = 0,  // int32_t, position of the description in the scheme
  OX_KEY_ID = 1,     // int32_t
  OX_KEY_NAME = 2,   // string
};

typedef struct ox_conn ox_conn_t;
typedef struct ox_listener ox_listener_t;
typedef struct ox_publisher ox_publisher_t;

// Head of every message.
typedef struct ox_msg {
  uint32_t type;
  size_t data_size;   // bytes at `data`
  void* data;         // payload, or null
  uint64_t reserved;  // internal to the gateway library
} ox_msg_t;

typedef struct ox_msg_data {
  ox_msg_t head;
  uint64_t msg_index;  // position of the description in the scheme, or UNKEYED_INDEX
  uint32_t msg_id;     // or UNKEYED_ID
  const char* msg_name;
  uint32_t user_id;
  const char* addr;
  struct ox_msg_data* ref_msg;  // the message that this one refers to, or null
} ox_msg_data_t;

typedef struct ox_msg_streamdata {
  ox_msg_t head;
  uint64_t msg_index;
  uint32_t msg_id;
  const char* msg_name;
  int64_t rev;           // revision of the row
  uint64_t num_nulls;    // bytes at `nulls`
  const uint8_t* nulls;  // one byte a field in field order, non-zero when null; or a null pointer
  uint64_t user_id;
} ox_msg_streamdata_t;

typedef struct ox_data_lifenum {
  uint32_t life_number;
  uint32_t flags;
} ox_data_lifenum_t;

#pragma pack(push, 1)
typedef struct ox_data_cleardeleted {
  uint32_t table_idx;
  int64_t table_rev;  // not aligned: read it with memcpy
} ox_data_cleardeleted_t;

// Descriptor of a block of bytes outside the payload; lies at its field's offset in the payload.
typedef struct ox_zblock {
  uint32_t size;
  void* ptr;  // not aligned: read it with memcpy
} ox_zblock_t;
#pragma pack(pop)

// Description of a scheme. Every list is linked through `next`, at offset 0 of its nodes.
typedef struct ox_hint {
  struct ox_hint* next;
  const char* key;
  const char* value;
} ox_hint_t;

typedef struct ox_field_value_desc {
  struct ox_field_value_desc* next;
  const char* name;
  const char* desc;
  const void* value;      // as many bytes as the field is wide
  const void* int_value;  // an integer of the field's width
} ox_field_value_desc_t;

struct ox_message_desc;

typedef struct ox_field_desc {
  struct ox_field_desc* next;
  uint32_t number;
  const char* name;
  const char* desc;
  const char* type;  // 'i...' marks a signed integer, 'u...' an unsigned one
  size_t size;       // bytes
  size_t offset;     // bytes from the start of the payload
  const void* value;
  uint32_t num_values;
  ox_field_value_desc_t* values;
  uint64_t reserved[3];
  struct ox_message_desc* msg;  // nested message, or null
} ox_field_desc_t;

typedef struct ox_index_field_desc {
  struct ox_index_field_desc* next;
  ox_field_desc_t* field;
  int32_t param;
} ox_index_field_desc_t;

typedef struct ox_index_desc {
  struct ox_index_desc* next;
  uint64_t num_fields;
  ox_index_field_desc_t* fields;
  const char* name;
  const char* desc;
  ox_hint_t* hints;
} ox_index_desc_t;

typedef struct ox_message_desc {
  struct ox_message_desc* next;
  size_t size;  // internal to the gateway library
  uint32_t num_fields;
  ox_field_desc_t* fields;
  uint32_t number;
  const char* name;
  const char* desc;
  ox_hint_t* hints;
  uint32_t num_indices;
  ox_index_desc_t* indices;
} ox_message_desc_t;

typedef struct ox_scheme_desc {
  uint32_t scheme_type;
  uint32_t features;
  uint32_t num_messages;
  ox_message_desc_t* messages;
} ox_scheme_desc_t;

// Receives one message. A non-zero result ends the ox_conn_process call that delivers and becomes
// its result; other calls may ignore it. `data` is the argument of ox_lsn_new.
typedef int (*ox_listener_cb_t)(ox_conn_t* conn, ox_listener_t* lsn, ox_msg_t* msg, void* data);
typedef void (*ox_exit_cb_t)(void* data);

// Environment: one in a process. Every other object needs it open.
int ox_env_open(const char* settings);
int ox_env_close(void);
// A null callback removes the registration.
int ox_env_register_exithandler(ox_exit_cb_t callback, void* data);

#if defined(__GNUC__)
#define OX_PRINTF_LIKE __attribute__((format(printf, 1, 2)))
#else
#define OX_PRINTF_LIKE
#endif
int ox_log_info(const char* format, ...) OX_PRINTF_LIKE;
int ox_log_error(const char* format, ...) OX_PRINTF_LIKE;
int ox_log_debugstr(const char* text);
int ox_log_tracestr(const char* text);
int ox_log_infostr(const char* text);
int ox_log_errorstr(const char* text);

// Renders the value at `data`, of the type that `name` names, as a string. `size` is the size of
// the buffer in bytes; with OX_ERR_BUFFERTOOSMALL it receives the size needed, terminating zero
// included.
int ox_getstr(const char* name, const void* data, char* buffer, size_t* size);
// Returns a string that lives as long as the process.
const char* ox_err_getstr(int code);
// The decimal at `value` is mantissa * 10^-scale.
int ox_bcd_get(const void* value, int64_t* mantissa, int8_t* scale);

int ox_conn_new(const char* settings, ox_conn_t** conn);
int ox_conn_open(ox_conn_t* conn, const char* settings);
int ox_conn_close(ox_conn_t* conn);
// Delivers what is queued; with nothing queued, waits for it at most `timeout` milliseconds.
int ox_conn_process(ox_conn_t* conn, int timeout, void* reserved);
int ox_conn_getstate(ox_conn_t* conn, int32_t* state);
int ox_conn_destroy(ox_conn_t* conn);

int ox_lsn_new(ox_conn_t* conn, const char* settings, ox_listener_cb_t callback, void* data,
               ox_listener_t** lsn);
int ox_lsn_open(ox_listener_t* lsn, const char* settings);
int ox_lsn_close(ox_listener_t* lsn);
int ox_lsn_getstate(ox_listener_t* lsn, int32_t* state);
int ox_lsn_getscheme(ox_listener_t* lsn, ox_scheme_desc_t** scheme);
int ox_lsn_destroy(ox_listener_t* lsn);

int ox_pub_new(ox_conn_t* conn, const char* settings, ox_publisher_t** pub);
int ox_pub_open(ox_publisher_t* pub, const char* settings);
int ox_pub_close(ox_publisher_t* pub);
int ox_pub_getstate(ox_publisher_t* pub, int32_t* state);
int ox_pub_getscheme(ox_publisher_t* pub, ox_scheme_desc_t** scheme);
int ox_pub_destroy(ox_publisher_t* pub);
// The new message belongs to the publisher until ox_pub_msgfree.
int ox_pub_msgnew(ox_publisher_t* pub, int key_type, const void* key, ox_msg_t** msg);
int ox_pub_post(ox_publisher_t* pub, ox_msg_t* msg, int flags);
int ox_pub_msgfree(ox_publisher_t* pub, ox_msg_t* msg);

// Renders a message for logs, without a terminating zero. `size` is the size of the buffer in bytes
// on entry and that of the result on return; with OX_ERR_BUFFERTOOSMALL the size needed.
int ox_msg_dump(ox_msg_t* msg, int64_t argument, char* buffer, uint64_t* size);

#ifdef __cplusplus
}

#define OX_AT(record, field, offset) \
  static_assert(offsetof(record, field) == (offset), #record "." #field " has moved")
OX_AT(ox_msg_t, type, 0);
OX_AT(ox_msg_t, data_size, 8);
OX_AT(ox_msg_t, data, 16);
OX_AT(ox_msg_t, reserved, 24);
static_assert(sizeof(ox_msg_t) == 32, "message head");
OX_AT(ox_msg_data_t, head, 0);
OX_AT(ox_msg_data_t, msg_index, 32);
OX_AT(ox_msg_data_t, msg_id, 40);
OX_AT(ox_msg_data_t, msg_name, 48);
OX_AT(ox_msg_data_t, user_id, 56);
OX_AT(ox_msg_data_t, addr, 64);
OX_AT(ox_msg_data_t, ref_msg, 72);
static_assert(sizeof(ox_msg_data_t) == 80, "data message");
OX_AT(ox_msg_streamdata_t, head, 0);
OX_AT(ox_msg_streamdata_t, msg_index, 32);
OX_AT(ox_msg_streamdata_t, msg_id, 40);
OX_AT(ox_msg_streamdata_t, msg_name, 48);
OX_AT(ox_msg_streamdata_t, rev, 56);
OX_AT(ox_msg_streamdata_t, num_nulls, 64);
OX_AT(ox_msg_streamdata_t, nulls, 72);
OX_AT(ox_msg_streamdata_t, user_id, 80);
static_assert(sizeof(ox_msg_streamdata_t) == 88, "stream data message");
OX_AT(ox_data_lifenum_t, life_number, 0);
OX_AT(ox_data_lifenum_t, flags, 4);
OX_AT(ox_data_cleardeleted_t, table_idx, 0);
OX_AT(ox_data_cleardeleted_t, table_rev, 4);
static_assert(sizeof(ox_data_cleardeleted_t) == 12, "packed");
OX_AT(ox_zblock_t, size, 0);
OX_AT(ox_zblock_t, ptr, 4);
static_assert(sizeof(ox_zblock_t) == 12, "packed");
OX_AT(ox_hint_t, next, 0);
OX_AT(ox_hint_t, key, 8);
OX_AT(ox_hint_t, value, 16);
OX_AT(ox_field_value_desc_t, next, 0);
OX_AT(ox_field_value_desc_t, name, 8);
OX_AT(ox_field_value_desc_t, desc, 16);
OX_AT(ox_field_value_desc_t, value, 24);
OX_AT(ox_field_value_desc_t, int_value, 32);
OX_AT(ox_field_desc_t, next, 0);
OX_AT(ox_field_desc_t, number, 8);
OX_AT(ox_field_desc_t, name, 16);
OX_AT(ox_field_desc_t, desc, 24);
OX_AT(ox_field_desc_t, type, 32);
OX_AT(ox_field_desc_t, size, 40);
OX_AT(ox_field_desc_t, offset, 48);
OX_AT(ox_field_desc_t, value, 56);
OX_AT(ox_field_desc_t, num_values, 64);
OX_AT(ox_field_desc_t, values, 72);
OX_AT(ox_field_desc_t, msg, 104);
OX_AT(ox_index_field_desc_t, next, 0);
OX_AT(ox_index_field_desc_t, field, 8);
OX_AT(ox_index_field_desc_t, param, 16);
OX_AT(ox_index_desc_t, next, 0);
OX_AT(ox_index_desc_t, num_fields, 8);
OX_AT(ox_index_desc_t, fields, 16);
OX_AT(ox_index_desc_t, name, 24);
OX_AT(ox_index_desc_t, desc, 32);
OX_AT(ox_index_desc_t, hints, 40);
OX_AT(ox_message_desc_t, next, 0);
OX_AT(ox_message_desc_t, num_fields, 16);
OX_AT(ox_message_desc_t, fields, 24);
OX_AT(ox_message_desc_t, number, 32);
OX_AT(ox_message_desc_t, name, 40);
OX_AT(ox_message_desc_t, desc, 48);
OX_AT(ox_message_desc_t, hints, 56);
OX_AT(ox_message_desc_t, num_indices, 64);
OX_AT(ox_message_desc_t, indices, 72);
OX_AT(ox_scheme_desc_t, scheme_type, 0);
OX_AT(ox_scheme_desc_t, features, 4);
OX_AT(ox_scheme_desc_t, num_messages, 8);
OX_AT(ox_scheme_desc_t, messages, 16);
// The upper half of each slot is undefined.
static_assert(sizeof(ox_scheme_desc_t::num_messages) == 4 &&
                  sizeof(ox_message_desc_t::num_fields) == 4 &&
                  sizeof(ox_message_desc_t::num_indices) == 4 &&
                  sizeof(ox_field_desc_t::num_values) == 4,
              "counts of 4 bytes");
#undef OX_AT
#endif

#endif  // OXLI_GATEWAY_OXLI_H
