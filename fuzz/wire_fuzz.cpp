// Decodes what a server might send instead of what was posted.
#include "standin/redis/wire.h"

#include <cstring>
#include <string>

#include "fuzz/fuzz.h"

namespace {

using oxli::fuzz::require;
using standin::Message;
using standin::MessagePtr;

constexpr std::int64_t kRev = 7;

volatile std::size_t sink;  // prevents the compiler from removing reads whose value is not used

void read(const void* bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) sink = static_cast<const unsigned char*>(bytes)[i];
}

void walk(const ox_msg_t& head, const Message::Bytes& bytes) {
  require(head.data_size == 0 || head.data);
  read(head.data, head.data_size);
  if (!bytes.description) return;
  require(head.data_size == bytes.description->description.size);
  for (const auto& [offset, field] : bytes.description->zFields) {
    ox_zblock_t block;
    std::memcpy(&block, static_cast<const char*>(head.data) + offset, sizeof block);
    require((block.size == 0) == (block.ptr == nullptr));
    read(block.ptr, block.size);
  }
}

void walk(const Message& message) {
  walk(message.record.head, message.own);
  if (message.record.head.type == OX_MSG_STREAM_DATA) {
    const ox_msg_streamdata_t& row = message.record.row;
    require(row.rev == kRev && message.own.description);
    sink = std::strlen(row.msg_name);
    if (row.nulls) read(row.nulls, row.num_nulls);
    sink = standin::rowKey(message).size();
    return;
  }
  const ox_msg_data_t& data = message.record.data;
  sink = std::strlen(data.msg_name) + std::strlen(data.addr);
  if (!data.ref_msg) return;
  require(!data.ref_msg->ref_msg);
  sink = std::strlen(data.ref_msg->msg_name) + std::strlen(data.ref_msg->addr);
  walk(data.ref_msg->head, message.ofRef);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const auto scheme = std::make_shared<const standin::Scheme>(
      "messages=leg,quote;message.leg=?{fields=price:d,note:z};"
      "message.quote=?{id=1;fields=key:i4,leg:m,picture:z;indices=pk;index.pk=?{fields=key};"
      "field.leg=?{message=leg}}");
  if (size == 0) return 0;
  const std::string input(bytes + 1, bytes + size);
  const auto own = (bytes[0] & 1) != 0 ? scheme : nullptr;
  const std::int64_t rev = (bytes[0] & 2) != 0 ? kRev : 0;
  if (const auto id = standin::redis::parseId(input)) {
    require(standin::redis::parseId(id->string()).has_value());
  }
  standin::redis::parsePair(input);
  try {
    const MessagePtr message = standin::redis::decode(input, own, rev);
    walk(*message);
    // An encoded message does not change when it is decoded and encoded again.
    const std::chrono::milliseconds within(message->replyWithin);
    const std::string again = standin::redis::encode(*message, within);
    require(again == standin::redis::encode(*standin::redis::decode(again, own, rev), within));
  } catch (const standin::Refusal& refusal) {
    require(refusal.code == OX_ERR_INVALIDARGUMENT && !refusal.reason.empty());
  }
  return 0;
}
