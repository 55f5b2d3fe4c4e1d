#include "loopback/message.h"

#include <cstring>
#include <new>

namespace inproc {
namespace {

std::size_t rounded(std::size_t size) {
  return (size + 7) / 8 * 8;
}

std::size_t textSize(const char* text) {
  return std::strlen(text) + 1;
}

std::size_t bytesBehind(const Content& content) {
  return rounded(content.size) + rounded(textSize(content.name)) + rounded(textSize(content.addr)) +
         rounded(content.numNulls);
}

template <class T>
T* keep(const T* from, std::size_t size, char*& at) {
  if (size == 0) return nullptr;
  std::memcpy(at, from, size);
  at += rounded(size);
  return reinterpret_cast<T*>(at - rounded(size));
}

// Copies what `content` points to and points it at the copies.
void keepAll(Content& content, char*& at) {
  content.data = keep(static_cast<const char*>(content.data), content.size, at);
  content.name = keep(content.name, textSize(content.name), at);
  content.addr = keep(content.addr, textSize(content.addr), at);
  content.nulls = keep(content.nulls, content.numNulls, at);
}

ox_zblock_t zblockAt(const Content& content, std::size_t offset) {
  ox_zblock_t block;
  std::memcpy(&block, static_cast<const char*>(content.data) + offset, sizeof block);
  if (!block.ptr) block.size = 0;
  return block;
}

}  // namespace

Content read(const ox_msg_t& record, std::uint32_t type, Shape shape) {
  Content content;
  content.type = type;
  content.serial = record.reserved;
  content.data = record.data;
  content.size = record.data ? record.data_size : 0;
  const auto common = [&content](const auto& full) {
    content.index = full.msg_index;
    content.id = full.msg_id;
    if (full.msg_name) content.name = full.msg_name;
    content.userId = full.user_id;
  };
  if (shape == Shape::Data) {
    const auto& full = reinterpret_cast<const ox_msg_data_t&>(record);
    common(full);
    if (full.addr) content.addr = full.addr;
    content.ref = full.ref_msg;
  } else if (shape == Shape::Row) {
    const auto& full = reinterpret_cast<const ox_msg_streamdata_t&>(record);
    common(full);
    content.rev = full.rev;
    content.nulls = full.nulls;
    content.numNulls = full.nulls ? full.num_nulls : 0;
  }
  return content;
}

StoredPtr Stored::make(const Content& content, const Content* ref,
                       const std::vector<std::size_t>* zblocks) {
  std::size_t behind = bytesBehind(content) + (ref ? bytesBehind(*ref) : 0);
  if (zblocks) {
    for (const std::size_t offset : *zblocks) behind += rounded(zblockAt(content, offset).size);
  }
  static_assert(sizeof(Stored) % 8 == 0, "what lies behind is aligned too");
  auto* const stored = new (::operator new(sizeof(Stored) + behind)) Stored;
  char* at = reinterpret_cast<char*>(stored) + sizeof(Stored);
  static_cast<Content&>(*stored) = content;
  keepAll(*stored, at);
  if (zblocks) {
    for (const std::size_t offset : *zblocks) {
      ox_zblock_t block = zblockAt(*stored, offset);
      block.ptr = keep(static_cast<const char*>(block.ptr), block.size, at);
      std::memcpy(static_cast<char*>(const_cast<void*>(stored->data)) + offset, &block,
                  sizeof block);
    }
  }
  stored->ref = nullptr;
  if (ref) {
    Content kept = *ref;
    kept.ref = nullptr;
    keepAll(kept, at);
    stored->refRecord = recordOf(kept, OX_MSG_DATA).data;
    stored->ref = &stored->refRecord;
  }
  return StoredPtr(stored);
}

StoredPtr::~StoredPtr() {
  if (!stored_ || stored_->holders.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  stored_->~Stored();
  ::operator delete(stored_);
}

// A record's pointers are not const, though a receiver has no business writing behind them.
Record recordOf(const Content& content, std::uint32_t type) {
  const ox_msg_t head{type, content.size, const_cast<void*>(content.data), content.serial};
  Record record;
  if (shapeOf(type) == Shape::Row) {
    record.row = {head,        content.index,    content.id,    content.name,
                  content.rev, content.numNulls, content.nulls, content.userId};
  } else {
    record.data = {head,
                   content.index,
                   content.id,
                   content.name,
                   static_cast<std::uint32_t>(content.userId),
                   content.addr,
                   const_cast<ox_msg_data_t*>(content.ref)};
  }
  return record;
}

}  // namespace inproc
