#include "standin/message.h"

#include <cstring>

namespace standin {
namespace {

// Copies the blocks of a payload and makes its descriptors point to the copies.
void copyBlocks(Message::Bytes& bytes, const ox_msg_streamdata_t* row) {
  if (!bytes.description) return;
  for (const auto& [offset, field] : bytes.description->zFields) {
    ox_zblock_t block;
    // The application may have reduced the size of the payload.
    if (offset + sizeof block > bytes.payload.size()) break;
    char* const descriptor = &bytes.payload[offset];
    std::memcpy(&block, descriptor, sizeof block);
    if (isNull(row, field) || block.size == 0) {
      block = {};
    } else {
      require(block.ptr, "a z-block has a size and no address");
      block.ptr = bytes.blocks.emplace_front(static_cast<char*>(block.ptr), block.size).data();
    }
    std::memcpy(descriptor, &block, sizeof block);
  }
}

template <class T>
void copyBody(T& record, Message::Bytes& bytes) {
  ox_msg_t& head = record.head;
  if (!head.data) head.data_size = 0;
  bytes.payload.assign(static_cast<const char*>(head.data), head.data_size);
  head.data = head.data_size > 0 ? bytes.payload.data() : nullptr;
  if (record.msg_name) bytes.name = record.msg_name;
  record.msg_name = bytes.name.c_str();
}

void copyData(ox_msg_data_t& data, Message::Bytes& bytes) {
  copyBody(data, bytes);
  copyBlocks(bytes, nullptr);
  if (data.addr) bytes.addr = data.addr;
  data.addr = bytes.addr.c_str();
}

void copyRow(ox_msg_streamdata_t& row, Message& message) {
  copyBody(row, message.own);
  copyBlocks(message.own, &row);
  if (!row.nulls) return;
  message.nulls.assign(reinterpret_cast<const char*>(row.nulls), row.num_nulls);
  row.nulls = reinterpret_cast<const std::uint8_t*>(message.nulls.data());
}

}  // namespace

bool isNull(const ox_msg_streamdata_t* row, std::uint32_t field) {
  return row && row->nulls && field < row->num_nulls && row->nulls[field];
}

MessagePtr copyOf(const Record& record, Description own, const Description* ofRef) {
  const auto message = std::make_shared<Message>();
  message->record = record;
  message->own.description = std::move(own);
  if (record.head.type == OX_MSG_STREAM_DATA) {
    copyRow(message->record.row, *message);
    return message;
  }
  copyData(message->record.data, message->own);
  if (record.data.ref_msg) {
    message->ref = *record.data.ref_msg;
    message->ref.ref_msg = nullptr;
    if (ofRef) message->ofRef.description = *ofRef;
    copyData(message->ref, message->ofRef);
    message->record.data.ref_msg = &message->ref;
  }
  return message;
}

std::string rowKey(const Message& row) {
  const Scheme::Message& table = *row.own.description;
  const ox_msg_streamdata_t& record = row.record.row;
  std::string key = std::to_string(table.position) + ':';
  if (table.key.empty()) return record.rev == 0 ? key : key + std::to_string(record.rev);
  for (const ox_field_desc_t* field : table.key) {
    key.append(static_cast<const char*>(record.head.data) + field->offset, field->size);
  }
  return key;
}

MessagePtr makeMessage(std::uint32_t type, const void* data, std::size_t size, const char* name,
                       std::uint32_t userId) {
  const ox_msg_t head{type, size, const_cast<void*>(data), 0};
  Record record;
  record.data = {head, UNKEYED_INDEX, UNKEYED_ID, name, userId, nullptr, nullptr};
  return copyOf(record);
}

}  // namespace standin
