#ifndef OXLI_LOOPBACK_MESSAGE_H
#define OXLI_LOOPBACK_MESSAGE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "oxli.h"

namespace inproc {

// Memory for any record; `head` is where each of them begins.
union Record {
  ox_msg_t head;
  ox_msg_data_t data;
  ox_msg_streamdata_t row;
};

// How far a record may be read: its head alone, as an ox_msg_data_t, as an ox_msg_streamdata_t.
enum class Shape { Head, Data, Row };

inline Shape shapeOf(std::uint32_t type) {
  return type == OX_MSG_STREAM_DATA ? Shape::Row : Shape::Data;
}

// What a record says, whatever its shape. `name` and `addr` are never null; `size` and `numNulls`
// are 0 where there is nothing to point at.
struct Content {
  std::uint32_t type = 0;
  std::uint64_t serial = 0;
  const void* data = nullptr;
  std::size_t size = 0;
  std::uint64_t index = UNKEYED_INDEX;
  std::uint32_t id = UNKEYED_ID;
  const char* name = "";
  std::uint64_t userId = 0;
  const char* addr = "";
  const ox_msg_data_t* ref = nullptr;
  std::int64_t rev = 0;
  const std::uint8_t* nulls = nullptr;
  std::size_t numNulls = 0;
};

Content read(const ox_msg_t& record, std::uint32_t type, Shape shape);

class StoredPtr;

// A message on its way to listeners: one block of memory, its own copy of everything it points to,
// unchanged once made.
struct Stored : Content {
  // `ref`: what the message refers to, or null. `zblocks`: offsets of block descriptors in the
  // payload, whose blocks are copied too.
  static StoredPtr make(const Content& content, const Content* ref = nullptr,
                        const std::vector<std::size_t>* zblocks = nullptr);

  ox_msg_data_t refRecord{};
  std::atomic<std::uint32_t> holders{0};
};

class StoredPtr {
 public:
  StoredPtr() = default;
  explicit StoredPtr(Stored* stored) : stored_(stored) { hold(); }
  StoredPtr(const StoredPtr& other) : stored_(other.stored_) { hold(); }
  StoredPtr(StoredPtr&& other) noexcept : stored_(std::exchange(other.stored_, nullptr)) {}
  StoredPtr& operator=(StoredPtr other) noexcept {
    std::swap(stored_, other.stored_);
    return *this;
  }
  ~StoredPtr();

  const Stored* get() const { return stored_; }
  const Stored* operator->() const { return stored_; }

 private:
  void hold() {
    if (stored_) stored_->holders.fetch_add(1, std::memory_order_relaxed);
  }

  Stored* stored_ = nullptr;
};

// A record of the given type that points into `content`.
Record recordOf(const Content& content, std::uint32_t type);

}  // namespace inproc

#endif  // OXLI_LOOPBACK_MESSAGE_H
