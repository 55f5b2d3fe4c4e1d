// Declares what this project uses of the gateway's client library: functions, records, type codes
// and result codes, for 64-bit little-endian Linux. The library is closed: the assertions below
// check the binary layouts that this project relies on, and the comments state meanings and
// lifetimes.
//
// Memory: every record belongs to the gateway. A record, string or z-block that a callback receives
// is valid until the callback returns. A scheme description is valid until the last listener or
// publisher on its stream is destroyed. The gateway reads the z-blocks of a posted message only
// until ox_pub_post returns, and string arguments only until the function returns. Strings are
// zero-terminated.
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

// Message types, the values of `ox_msg_t::type`. The comments state what the member `data` points
// to.
enum {
  OX_MSG_OPEN = 0x100,
  OX_MSG_CLOSE = 0x101,        // int32_t, the reason
  OX_MSG_TIME = 0x102,         // int64_t, the time
  OX_MSG_DATA = 0x110,         // the message body; the record is an ox_msg_data_t
  OX_MSG_STREAM_DATA = 0x120,  // the message body; the record is an ox_msg_streamdata_t
  OX_MSG_PARSEERR = 0x190,     // int32_t, the error code; the record is an ox_msg_data_t
  OX_MSG_TN_BEGIN = 0x200,
  OX_MSG_TN_COMMIT = 0x210,
  OX_MSG_ZRMQ_TIMEOUT = 0x1001,         // nothing; the record is an ox_msg_data_t up to `user_id`
  OX_MSG_ZRREPL_LIFENUM = 0x1110,       // ox_data_lifenum_t
  OX_MSG_ZRREPL_CLEARDELETED = 0x1111,  // ox_data_cleardeleted_t
  OX_MSG_ZRREPL_ONLINE = 0x1112,
  OX_MSG_ZRREPL_STATE = 0x1115,  // string
};

// A parse error is a data message with this bit set.
#define OX_MSG_PARSEERR_BIT 0x80u

// The values of `msg_index` and `msg_id` in a message that has none.
#define UNKEYED_INDEX UINT64_MAX
#define UNKEYED_ID UINT32_MAX

// Key types of ox_pub_msgnew. The comments state what `key` points to.
enum {
  OX_KEY_INDEX = 0,  // int32_t, position of the description in the scheme
  OX_KEY_ID = 1,     // int32_t
  OX_KEY_NAME = 2,   // string
};

typedef struct ox_conn ox_conn_t;
typedef struct ox_listener ox_listener_t;
typedef struct ox_publisher ox_publisher_t;

// The head of every message record.
typedef struct ox_msg {
  uint32_t type;
  size_t data_size;   // bytes at `data`
  void* data;         // payload, or null
  uint64_t reserved;  // internal to the gateway library
} ox_msg_t;

typedef struct ox_msg_data {
  ox_msg_t head;
  uint64_t msg_index;  // position of the description in the scheme, or UNKEYED_INDEX
  uint32_t msg_id;     // id of the description in the scheme, or UNKEYED_ID
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
  int64_t rev;         // revision of the row
  uint64_t num_nulls;  // bytes at `nulls`
  // One byte for each field, in field order, non-zero if the field is null; or a null pointer.
  const uint8_t* nulls;
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

// The descriptor of a block of bytes outside the payload. It is in the payload, at the offset of
// its field.
typedef struct ox_zblock {
  uint32_t size;
  void* ptr;  // not aligned: read it with memcpy
} ox_zblock_t;
#pragma pack(pop)

// The following records describe a scheme. `next`, at offset 0, links the nodes of each list.
typedef struct ox_hint {
  struct ox_hint* next;
  const char* key;
  const char* value;
} ox_hint_t;

typedef struct ox_field_value_desc {
  struct ox_field_value_desc* next;
  const char* name;
  const char* desc;
  const void* value;      // as many bytes as the field has
  const void* int_value;  // an integer of the size of the field
} ox_field_value_desc_t;

struct ox_message_desc;

typedef struct ox_field_desc {
  struct ox_field_desc* next;
  uint32_t number;
  const char* name;
  const char* desc;
  const char* type;  // signed integer types begin with 'i', unsigned ones with 'u'
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

// The environment: a process has one, and every other object requires that it is open.
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
int ox_log_debugstr(const char* string);
int ox_log_tracestr(const char* string);
int ox_log_infostr(const char* string);
int ox_log_errorstr(const char* string);

// Writes the value at `data`, of the type called `name`, to `buffer` as a string. `size` is the
// size of the buffer in bytes. If that is too small, returns OX_ERR_BUFFERTOOSMALL and stores the
// required size, including the terminating zero, in `size`.
int ox_getstr(const char* name, const void* data, char* buffer, size_t* size);
// Returns a string that is valid until the process ends.
const char* ox_err_getstr(int code);
// Reads the decimal at `value`, which is mantissa * 10^-scale.
int ox_bcd_get(const void* value, int64_t* mantissa, int8_t* scale);

int ox_conn_new(const char* settings, ox_conn_t** conn);
int ox_conn_open(ox_conn_t* conn, const char* settings);
int ox_conn_close(ox_conn_t* conn);
// Delivers the queued messages. If none is queued, waits for messages for at most `timeout`
// milliseconds.
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
// The publisher owns the new message until ox_pub_msgfree.
int ox_pub_msgnew(ox_publisher_t* pub, int key_type, const void* key, ox_msg_t** msg);
int ox_pub_post(ox_publisher_t* pub, ox_msg_t* msg, int flags);
int ox_pub_msgfree(ox_publisher_t* pub, ox_msg_t* msg);

// Writes a message to `buffer` as a string for logs, without a terminating zero. `size` is the size
// of the buffer in bytes and receives the size of the result. If the buffer is too small, returns
// OX_ERR_BUFFERTOOSMALL and stores the required size in `size`.
int ox_msg_dump(ox_msg_t* msg, int64_t argument, char* buffer, uint64_t* size);

#ifdef __cplusplus
}

#define OX_ASSERT_OFFSET(record, field, offset) \
  static_assert(offsetof(record, field) == (offset), #record "." #field " has moved")
OX_ASSERT_OFFSET(ox_msg_t, type, 0);
OX_ASSERT_OFFSET(ox_msg_t, data_size, 8);
OX_ASSERT_OFFSET(ox_msg_t, data, 16);
OX_ASSERT_OFFSET(ox_msg_t, reserved, 24);
static_assert(sizeof(ox_msg_t) == 32, "size of the message head");
OX_ASSERT_OFFSET(ox_msg_data_t, head, 0);
OX_ASSERT_OFFSET(ox_msg_data_t, msg_index, 32);
OX_ASSERT_OFFSET(ox_msg_data_t, msg_id, 40);
OX_ASSERT_OFFSET(ox_msg_data_t, msg_name, 48);
OX_ASSERT_OFFSET(ox_msg_data_t, user_id, 56);
OX_ASSERT_OFFSET(ox_msg_data_t, addr, 64);
OX_ASSERT_OFFSET(ox_msg_data_t, ref_msg, 72);
static_assert(sizeof(ox_msg_data_t) == 80, "size of a data message");
OX_ASSERT_OFFSET(ox_msg_streamdata_t, head, 0);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, msg_index, 32);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, msg_id, 40);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, msg_name, 48);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, rev, 56);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, num_nulls, 64);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, nulls, 72);
OX_ASSERT_OFFSET(ox_msg_streamdata_t, user_id, 80);
static_assert(sizeof(ox_msg_streamdata_t) == 88, "size of stream data");
OX_ASSERT_OFFSET(ox_data_lifenum_t, life_number, 0);
OX_ASSERT_OFFSET(ox_data_lifenum_t, flags, 4);
OX_ASSERT_OFFSET(ox_data_cleardeleted_t, table_idx, 0);
OX_ASSERT_OFFSET(ox_data_cleardeleted_t, table_rev, 4);
static_assert(sizeof(ox_data_cleardeleted_t) == 12, "packed, without padding");
OX_ASSERT_OFFSET(ox_zblock_t, size, 0);
OX_ASSERT_OFFSET(ox_zblock_t, ptr, 4);
static_assert(sizeof(ox_zblock_t) == 12, "packed, without padding");
OX_ASSERT_OFFSET(ox_hint_t, next, 0);
OX_ASSERT_OFFSET(ox_hint_t, key, 8);
OX_ASSERT_OFFSET(ox_hint_t, value, 16);
OX_ASSERT_OFFSET(ox_field_value_desc_t, next, 0);
OX_ASSERT_OFFSET(ox_field_value_desc_t, name, 8);
OX_ASSERT_OFFSET(ox_field_value_desc_t, desc, 16);
OX_ASSERT_OFFSET(ox_field_value_desc_t, value, 24);
OX_ASSERT_OFFSET(ox_field_value_desc_t, int_value, 32);
OX_ASSERT_OFFSET(ox_field_desc_t, next, 0);
OX_ASSERT_OFFSET(ox_field_desc_t, number, 8);
OX_ASSERT_OFFSET(ox_field_desc_t, name, 16);
OX_ASSERT_OFFSET(ox_field_desc_t, desc, 24);
OX_ASSERT_OFFSET(ox_field_desc_t, type, 32);
OX_ASSERT_OFFSET(ox_field_desc_t, size, 40);
OX_ASSERT_OFFSET(ox_field_desc_t, offset, 48);
OX_ASSERT_OFFSET(ox_field_desc_t, value, 56);
OX_ASSERT_OFFSET(ox_field_desc_t, num_values, 64);
OX_ASSERT_OFFSET(ox_field_desc_t, values, 72);
OX_ASSERT_OFFSET(ox_field_desc_t, msg, 104);
OX_ASSERT_OFFSET(ox_index_field_desc_t, next, 0);
OX_ASSERT_OFFSET(ox_index_field_desc_t, field, 8);
OX_ASSERT_OFFSET(ox_index_field_desc_t, param, 16);
OX_ASSERT_OFFSET(ox_index_desc_t, next, 0);
OX_ASSERT_OFFSET(ox_index_desc_t, num_fields, 8);
OX_ASSERT_OFFSET(ox_index_desc_t, fields, 16);
OX_ASSERT_OFFSET(ox_index_desc_t, name, 24);
OX_ASSERT_OFFSET(ox_index_desc_t, desc, 32);
OX_ASSERT_OFFSET(ox_index_desc_t, hints, 40);
OX_ASSERT_OFFSET(ox_message_desc_t, next, 0);
OX_ASSERT_OFFSET(ox_message_desc_t, num_fields, 16);
OX_ASSERT_OFFSET(ox_message_desc_t, fields, 24);
OX_ASSERT_OFFSET(ox_message_desc_t, number, 32);
OX_ASSERT_OFFSET(ox_message_desc_t, name, 40);
OX_ASSERT_OFFSET(ox_message_desc_t, desc, 48);
OX_ASSERT_OFFSET(ox_message_desc_t, hints, 56);
OX_ASSERT_OFFSET(ox_message_desc_t, num_indices, 64);
OX_ASSERT_OFFSET(ox_message_desc_t, indices, 72);
OX_ASSERT_OFFSET(ox_scheme_desc_t, scheme_type, 0);
OX_ASSERT_OFFSET(ox_scheme_desc_t, features, 4);
OX_ASSERT_OFFSET(ox_scheme_desc_t, num_messages, 8);
OX_ASSERT_OFFSET(ox_scheme_desc_t, messages, 16);
// The 4 bytes after each of these counts are undefined.
static_assert(sizeof(ox_scheme_desc_t::num_messages) == 4 &&
                  sizeof(ox_message_desc_t::num_fields) == 4 &&
                  sizeof(ox_message_desc_t::num_indices) == 4 &&
                  sizeof(ox_field_desc_t::num_values) == 4,
              "counts have 4 bytes");
#undef OX_ASSERT_OFFSET
#endif

#endif  // OXLI_GATEWAY_OXLI_H
