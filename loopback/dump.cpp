#include "loopback/call.h"
#include "loopback/delivery.h"
#include "loopback/stream.h"

using namespace inproc;

namespace {

std::string typeName(std::uint32_t type) {
  switch (type) {
    case OX_MSG_OPEN:
      return "OPEN";
    case OX_MSG_CLOSE:
      return "CLOSE";
    case OX_MSG_TIME:
      return "TIME";
    case OX_MSG_DATA:
      return "DATA";
    case OX_MSG_STREAM_DATA:
      return "STREAM_DATA";
    case OX_MSG_PARSEERR:
      return "PARSEERR";
    case OX_MSG_TN_BEGIN:
      return "TN_BEGIN";
    case OX_MSG_TN_COMMIT:
      return "TN_COMMIT";
    case OX_MSG_ZRMQ_TIMEOUT:
      return "ZRMQ_TIMEOUT";
    case OX_MSG_ZRREPL_LIFENUM:
      return "ZRREPL_LIFENUM";
    case OX_MSG_ZRREPL_CLEARDELETED:
      return "ZRREPL_CLEARDELETED";
    case OX_MSG_ZRREPL_ONLINE:
      return "ZRREPL_ONLINE";
    case OX_MSG_ZRREPL_STATE:
      return "ZRREPL_STATE";
    default:
      return "type " + std::to_string(type);
  }
}

// The live scheme with that description, so that an invented address is never read.
const Scheme* schemeAt(std::int64_t address) {
  const auto isAt = [address](const std::shared_ptr<Scheme>& scheme) {
    return scheme && reinterpret_cast<std::intptr_t>(&scheme->description) == address;
  };
  for (const auto& [name, weak] : gateway().streams) {
    const std::shared_ptr<Stream> stream = weak.lock();
    if (!stream) continue;
    for (const std::shared_ptr<Scheme>& scheme : stream->schemes) {
      if (isAt(scheme)) return scheme.get();
    }
  }
  for (const auto& [handle, pub] : gateway().publishers.all()) {
    if (isAt(pub->declared)) return pub->declared.get();
  }
  return nullptr;
}

std::string rendered(const ox_field_desc_t& field, const char* value) {
  try {
    return render(typeOf(field.type), value);
  } catch (const Refused&) {
    return "?";  // no decimal
  }
}

void addFields(std::string& text, const ox_message_desc_t& message, const std::string& prefix,
               const char* data, const Content* nullable) {
  for (const ox_field_desc_t* field = message.fields; field; field = field->next) {
    const std::string name = prefix + field->name;
    const char* const value = data + field->offset;
    if (nullable && field->number < nullable->numNulls && nullable->nulls[field->number]) {
      text += name + "=null\n";
    } else if (field->msg) {
      addFields(text, *field->msg, name + '.', value, nullptr);
    } else {
      text += name + '=' + rendered(*field, value) + '\n';
    }
  }
}

std::string dump(const Content& content, Shape shape, const Scheme* scheme) {
  std::string text = typeName(content.type) + ' ' + content.name + ", " +
                     std::to_string(content.size) + " bytes\n";
  if (shape != Shape::Head) text += "user_id=" + std::to_string(content.userId) + '\n';
  if (shape == Shape::Data) text += std::string("addr=") + content.addr + '\n';
  if (shape == Shape::Row) text += "rev=" + std::to_string(content.rev) + '\n';
  if (content.numNulls > 0) text += "nulls=";
  for (std::size_t i = 0; i < content.numNulls; ++i) text += content.nulls[i] ? '1' : '0';
  if (content.numNulls > 0) text += '\n';
  const Scheme::Message* const message = scheme ? scheme->byName(content.name) : nullptr;
  if (message && message->description->size == content.size) {
    addFields(text, *message->description, "", static_cast<const char*>(content.data), &content);
  }
  return text;
}

}  // namespace

int ox_msg_dump(ox_msg_t* msg, int64_t argument, char* buffer, uint64_t* size) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    require(size, OX_ERR_INVALIDARGUMENT);
    const KnownRecord known = knownRecord(msg);
    const Content content = read(*msg, known.type, known.shape);
    const std::string text = dump(content, known.shape, schemeAt(argument));
    const bool fits = buffer && *size >= text.size();
    *size = text.size();
    if (!fits) return OX_ERR_BUFFERTOOSMALL;
    text.copy(buffer, text.size());
    return OX_ERR_OK;
  });
}
