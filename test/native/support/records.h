#ifndef OXLI_TEST_NATIVE_SUPPORT_RECORDS_H
#define OXLI_TEST_NATIVE_SUPPORT_RECORDS_H

#include <cstddef>
#include <cstdint>

#include "oxli.h"

namespace oxli::test {

// Make gateway records. The test owns the memory that they point to.
inline ox_msg_t serviceRecord(std::uint32_t type, void* data = nullptr, std::size_t size = 0) {
  ox_msg_t msg = {};
  msg.type = type;
  msg.data = data;
  msg.data_size = size;
  return msg;
}

inline ox_msg_data_t dataRecord(std::uint64_t index, std::uint32_t id, void* data = nullptr,
                                std::size_t size = 0) {
  ox_msg_data_t msg = {};
  msg.head = serviceRecord(OX_MSG_DATA, data, size);
  msg.msg_index = index;
  msg.msg_id = id;
  msg.msg_name = "quote";
  msg.user_id = 0xfffffffe;
  msg.addr = "to";
  return msg;
}

inline ox_msg_streamdata_t rowRecord(std::uint64_t index, const std::uint8_t* nulls = nullptr,
                                     std::size_t count = 0) {
  ox_msg_streamdata_t msg = {};
  msg.head = serviceRecord(OX_MSG_STREAM_DATA);
  msg.msg_index = index;
  msg.msg_id = 7;
  msg.msg_name = "row";
  msg.rev = -5;
  msg.num_nulls = count;
  msg.nulls = nulls;
  msg.user_id = 0x123456789;
  return msg;
}

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_RECORDS_H
