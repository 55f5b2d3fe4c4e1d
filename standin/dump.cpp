// Messages as strings, one line for each field.
#include "standin/delivery.h"
#include "standin/environment.h"
#include "standin/value.h"

using namespace standin;

namespace {

// The scheme whose description is at that address; null for any other address, which is not read.
const Scheme* schemeAt(std::int64_t address) REQUIRES(sMutex) {
  for (const auto& [string, scheme] : environment().schemes) {
    const std::shared_ptr<const Scheme> shared = scheme.lock();
    if (reinterpret_cast<std::intptr_t>(&shared->description) == address) return shared.get();
  }
  return nullptr;
}

// Not recursive, because messages may be nested thousands of levels deep.
void addFields(std::string& lines, const ox_message_desc_t& message, const char* data,
               const ox_msg_streamdata_t* row) {
  struct Level {
    const ox_field_desc_t* next;
    const char* data;
    std::size_t prefix;  // length of the prefix in `name`
  };
  std::vector<Level> levels = {{message.fields, data, 0}};
  std::string name;
  while (!levels.empty()) {
    Level& level = levels.back();
    const ox_field_desc_t* const field = level.next;
    if (!field) {
      levels.pop_back();
      continue;
    }
    level.next = field->next;
    name.resize(level.prefix);
    name += field->name;
    const char* const value = level.data + field->offset;
    if (levels.size() == 1 && isNull(row, field->number)) {
      lines += name + "=null\n";
    } else if (field->msg) {
      name += '.';
      levels.push_back({field->msg->fields, value, name.size()});
    } else {
      lines += name + '=' + valueString(field->type, value) + '\n';
    }
  }
}

std::string dump(const KnownRecord& known, const Scheme* scheme) {
  const ox_msg_t& head = known.record.head;
  std::string lines =
      "type=" + std::to_string(head.type) + "\nsize=" + std::to_string(head.data_size) + '\n';
  if (!known.whole) return lines;
  const ox_msg_data_t& data = known.record.data;
  const ox_msg_streamdata_t* const row =
      head.type == OX_MSG_STREAM_DATA ? &known.record.row : nullptr;
  const std::string name = data.msg_name ? data.msg_name : "";
  lines += "name=" + name + "\nuser_id=" + std::to_string(row ? row->user_id : data.user_id) + '\n';
  if (row) lines += "rev=" + std::to_string(row->rev) + '\n';
  if (!row && data.addr) lines += "addr=" + std::string(data.addr) + '\n';
  const Scheme::Message* const message = scheme ? scheme->find(OX_KEY_NAME, name.c_str()) : nullptr;
  if (message && head.data && message->description.size == head.data_size) {
    addFields(lines, message->description, static_cast<const char*>(head.data), row);
  }
  return lines;
}

}  // namespace

int ox_msg_dump(ox_msg_t* msg, int64_t argument, char* buffer, uint64_t* size) {
  return call(__func__, {}, [&]() -> int {
    const MutexLock lock(sMutex);
    requireOpenEnvironment();
    require(size, "the size is null");
    const std::string lines = dump(knownRecord(msg), schemeAt(argument));
    const std::uint64_t room = std::exchange(*size, lines.size());
    if (!buffer || room < lines.size()) return OX_ERR_BUFFERTOOSMALL;
    lines.copy(buffer, lines.size());
    return OX_ERR_OK;
  });
}
