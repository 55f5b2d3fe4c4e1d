#include "standin/redis/wire.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace standin::redis {
namespace {

constexpr char kVersion = 1;

class ByteWriter {
 public:
  void number(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) bytes_ += static_cast<char>(value | 0x80);
    bytes_ += static_cast<char>(value);
  }
  void string(std::string_view value) {
    number(value.size());
    bytes_ += value;
  }
  std::string release() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

class ByteReader {
 public:
  explicit ByteReader(std::string_view bytes) : left_(bytes) {}

  std::uint64_t number() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      require(!left_.empty(), "the message is cut off");
      const auto byte = static_cast<unsigned char>(left_.front());
      left_.remove_prefix(1);
      value |= std::uint64_t{byte & 0x7Fu} << shift;
      if (byte < 0x80) return value;
    }
    throw Refusal{OX_ERR_INVALIDARGUMENT, "a number of the message is too long"};
  }
  std::uint32_t number32() {
    const std::uint64_t value = number();
    require(value <= UINT32_MAX, "a number of the message is out of range");
    return static_cast<std::uint32_t>(value);
  }
  std::string_view string() {
    const std::uint64_t size = number();
    require(size <= left_.size(), "the message is cut off");
    const std::string_view value = left_.substr(0, size);
    left_.remove_prefix(size);
    return value;
  }
  bool atEnd() const { return left_.empty(); }

 private:
  std::string_view left_;
};

ox_zblock_t blockAt(const std::string& payload, std::size_t offset) {
  ox_zblock_t block;
  std::memcpy(&block, &payload[offset], sizeof block);
  return block;
}

void writePart(ByteWriter& to, const Message::Bytes& bytes, bool hasPayload,
               const std::string* nulls) {
  to.string(bytes.name);
  to.string(bytes.addr);
  to.number(nulls ? nulls->size() + 1 : 0);
  for (std::size_t i = 0; nulls && i < nulls->size(); ++i) to.number((*nulls)[i] ? 1 : 0);
  std::string payload = hasPayload ? bytes.payload : "";
  std::vector<std::pair<std::size_t, ox_zblock_t>> blocks;
  if (bytes.description) {
    for (const auto& [offset, field] : bytes.description->zFields) {
      if (offset + sizeof(ox_zblock_t) > payload.size()) break;
      const ox_zblock_t block = blockAt(payload, offset);
      if (block.size > 0) blocks.emplace_back(offset, block);
      // An address of this process has no meaning in another one.
      std::memset(&payload[offset], 0, sizeof block);
    }
  }
  to.string(payload);
  to.number(blocks.size());
  for (const auto& [offset, block] : blocks) {
    to.number(offset);
    to.string({static_cast<const char*>(block.ptr), block.size});
  }
}

void requireNoZero(std::string_view string) {
  require(string.find('\0') == std::string_view::npos,
          "a string of the message contains a zero byte");
}

// Without a description of the payload, its blocks are skipped. With `mayBeForeign`, a message with
// the name and size of one of this scheme, but with z-blocks at other offsets, is of another
// stream: it gets no description.
void readPart(ByteReader& from, Message::Bytes& bytes, std::optional<std::string>& nullFlags,
              const std::shared_ptr<const Scheme>& scheme, bool mayBeForeign = false) {
  const std::string_view name = from.string();
  const std::string_view addr = from.string();
  requireNoZero(name);
  requireNoZero(addr);
  bytes.name = name;
  bytes.addr = addr;
  const std::uint64_t nulls = from.number();
  if (nulls > 0) nullFlags.emplace();
  for (std::uint64_t i = 1; i < nulls; ++i) *nullFlags += static_cast<char>(from.number() != 0);
  bytes.payload = from.string();
  const Scheme::Message* const described =
      scheme ? scheme->find(OX_KEY_NAME, bytes.name.c_str()) : nullptr;
  if (described && described->description.size == bytes.payload.size()) {
    bytes.description = {scheme, described};
    for (const auto& [offset, field] : described->zFields) {
      std::memset(&bytes.payload[offset], 0, sizeof(ox_zblock_t));
    }
  }
  std::size_t end = 0;  // of the descriptor before
  for (std::uint64_t left = from.number(); left > 0; --left) {
    const std::uint64_t offset = from.number();
    const std::string_view block = from.string();
    if (!bytes.description) continue;
    require(offset >= end && !block.empty() && block.size() <= UINT32_MAX,
            "a z-block of the message is invalid");
    end = offset + sizeof(ox_zblock_t);
    const auto& fields = bytes.description->zFields;
    const auto isHere = [offset](const auto& field) { return field.first == offset; };
    const bool hasField = std::any_of(fields.begin(), fields.end(), isHere);
    if (!hasField && mayBeForeign) {
      bytes.description = {};
      bytes.blocks.clear();
      continue;
    }
    require(hasField, "the message has a z-block without a field");
    std::string& copy = bytes.blocks.emplace_front(block);
    const ox_zblock_t descriptor{static_cast<std::uint32_t>(block.size()), copy.data()};
    std::memcpy(&bytes.payload[offset], &descriptor, sizeof descriptor);
  }
}

ox_msg_t headOf(std::uint32_t type, std::uint64_t serial, Message::Bytes& bytes) {
  void* const data = bytes.payload.empty() ? nullptr : bytes.payload.data();
  return {type, bytes.payload.size(), data, serial};
}

bool isParseError(std::uint32_t type, const Message::Bytes& bytes) {
  return type == OX_MSG_PARSEERR && bytes.payload.size() == sizeof(std::int32_t);
}

void readReferred(ByteReader& from, Message& message, const std::shared_ptr<const Scheme>& scheme) {
  const std::uint32_t type = from.number32();
  const std::uint32_t userId = from.number32();
  const std::uint64_t serial = from.number();
  Message::Bytes& bytes = message.ofRef;
  std::optional<std::string> nulls;
  readPart(from, bytes, nulls, scheme, true);
  const bool isError = isParseError(type, bytes);
  require(!nulls && (isError || type == OX_MSG_DATA || !isKnownType(type)),
          "the message refers to one that is not a data message");
  const Scheme::Message* const described = bytes.description.get();
  // One of another stream may contain addresses.
  if (!described && !isError) bytes.payload.clear();
  message.ref = {headOf(type, serial, bytes),
                 described ? described->index : UNKEYED_INDEX,
                 described ? described->id : UNKEYED_ID,
                 bytes.name.c_str(),
                 userId,
                 bytes.addr.c_str(),
                 nullptr};
  message.record.data.ref_msg = &message.ref;
}

}  // namespace

std::string encode(const Message& message, std::chrono::milliseconds replyWithin) {
  const Record& record = message.record;
  const bool isRow = record.head.type == OX_MSG_STREAM_DATA;
  ByteWriter to;
  to.number(kVersion);
  to.number(record.head.type);
  to.number(isRow ? record.row.user_id : record.data.user_id);
  to.number(record.head.reserved);
  to.number(static_cast<std::uint64_t>(replyWithin.count()));
  writePart(to, message.own, true, isRow && record.row.nulls ? &message.nulls : nullptr);
  const bool refers = !isRow && record.data.ref_msg;
  to.number(refers ? 1 : 0);
  if (refers) {
    to.number(message.ref.head.type);
    to.number(message.ref.user_id);
    to.number(message.ref.head.reserved);
    // Without a description it is unknown which bytes of a payload are addresses.
    const bool hasPayload =
        message.ofRef.description || isParseError(message.ref.head.type, message.ofRef);
    writePart(to, message.ofRef, hasPayload, nullptr);
  }
  return to.release();
}

MessagePtr decode(std::string_view bytes, const std::shared_ptr<const Scheme>& scheme,
                  std::int64_t rev) {
  ByteReader from(bytes);
  require(from.number() == kVersion, "the message is of an unknown version");
  const auto message = std::make_shared<Message>();
  Message::Bytes& own = message->own;
  const std::uint32_t type = from.number32();
  const std::uint64_t userId = from.number();
  const std::uint64_t serial = from.number();
  message->replyWithin = from.number32();
  std::optional<std::string> nulls;
  readPart(from, own, nulls, scheme);
  const ox_msg_t head = headOf(type, serial, own);
  const bool isRow = type == OX_MSG_STREAM_DATA;
  require(isRow == (rev > 0), "the type of the message does not match the kind of its entry");
  const Scheme::Message* const described = own.description.get();
  if (isRow) {
    require(described, "the stream's scheme does not describe the row");
    require(!nulls || nulls->size() == described->description.num_fields,
            "the row has another number of null flags than its message has fields");
    if (nulls) message->nulls = std::move(*nulls);
    auto* const flags = reinterpret_cast<const std::uint8_t*>(message->nulls.data());
    message->record.row = {head,
                           described->index,
                           described->id,
                           own.name.c_str(),
                           rev,
                           described->description.num_fields,
                           nulls ? flags : nullptr,
                           userId};
  } else {
    // The code is that of the publisher's scheme, which may differ from the stream's.
    const bool isData = type == OX_MSG_DATA || !isKnownType(type);
    const bool isError = isParseError(type, own);
    require(!nulls && (isError || (described && isData)),
            "the stream's scheme does not describe the message");
    require(userId <= UINT32_MAX, "a number of the message is out of range");
    message->record.data = {head,
                            isError ? UNKEYED_INDEX : described->index,
                            isError ? UNKEYED_ID : described->id,
                            own.name.c_str(),
                            static_cast<std::uint32_t>(userId),
                            own.addr.c_str(),
                            nullptr};
  }
  const std::uint64_t refers = from.number();
  require(refers <= 1 && !(isRow && refers > 0), "the message has an invalid reference");
  if (refers > 0) readReferred(from, *message, scheme);
  require(from.atEnd(), "bytes follow the message");
  return message;
}

std::optional<Id> parseId(std::string_view string) {
  const std::size_t dash = string.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto rev = toNumber<std::int64_t>(std::string(string.substr(0, dash)));
  const auto number = toNumber<std::int64_t>(std::string(string.substr(dash + 1)));
  if (!rev || !number || *rev < 0 || *number < 0) return std::nullopt;
  return Id{*rev, *number};
}

std::optional<std::pair<std::int64_t, std::int64_t>> parsePair(std::string_view string) {
  const std::size_t colon = string.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto first = toNumber<std::int64_t>(std::string(string.substr(0, colon)));
  const auto second = toNumber<std::int64_t>(std::string(string.substr(colon + 1)));
  if (!first || !second) return std::nullopt;
  return std::make_pair(*first, *second);
}

}  // namespace standin::redis
