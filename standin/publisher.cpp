#include "standin/gateway.h"

using namespace standin;

namespace {

// One object for equal texts, so that schemes are told apart by their addresses.
std::shared_ptr<const Scheme> schemeIn(const Properties& settings) {
  if (!settings.has("scheme")) return nullptr;
  const std::string text = blockText(settings, "scheme");
  auto& schemes = gateway().schemes;
  const auto found = schemes.find(text);
  if (found != schemes.end()) return found->second.lock();
  auto made = std::make_unique<const Scheme>(text);
  const auto entry = schemes.emplace(text, std::weak_ptr<const Scheme>()).first;
  const auto release = [&schemes, entry](const Scheme* scheme) {
    schemes.erase(entry);
    delete scheme;
  };
  const std::shared_ptr<const Scheme> scheme(made.release(), release);
  entry->second = scheme;
  return scheme;
}

std::shared_ptr<const Scheme> schemeOf(const Publisher& pub) {
  if (pub.scheme) return pub.scheme;
  require(pub.stream && pub.stream->scheme(), OX_ERR_INVALIDSTATE);
  return pub.stream->schemes.front();
}

// How the stream's scheme describes a message that is posted; null when it does not.
Description describe(const Stream& stream, const KnownRecord& known) {
  const ox_msg_t& head = known.record.head;
  const std::size_t size = head.data ? head.data_size : 0;
  // The host may have changed the size.
  if (!known.description || known.description->description.size != size) return {};
  return stream.describe(*known.description);
}

}  // namespace

int ox_pub_new(ox_conn_t* handle, const char* settings, ox_publisher_t** out) {
  return call(__func__, {settings}, handle, [&](Connection& conn, Lock&) {
    require(out);
    const auto pub = std::make_shared<Publisher>();
    pub->conn = gateway().connections.live(handle);
    pub->settings = parse(settings);
    pub->scheme = schemeIn(pub->settings);
    conn.publishers.push_back(pub);
    *out = gateway().add(pub);
  });
}

int ox_pub_open(ox_publisher_t* handle, const char* text) {
  return call(__func__, {text}, handle, [&](Publisher& pub, Lock&) {
    const Properties settings = parse(text, pub.settings);
    const std::shared_ptr<const Scheme> scheme = schemeIn(settings);
    // Another one would end the life of descriptions that the host may hold.
    require(!pub.scheme || !scheme || scheme == pub.scheme);
    const std::shared_ptr<const Scheme>& own = pub.scheme ? pub.scheme : scheme;
    const std::chrono::milliseconds timeout(number<std::uint32_t>(settings, "reply_timeout", 1000));
    require(!pub.isOpen() && pub.conn->isOpen(), OX_ERR_INVALIDSTATE);
    pub.stream = joinStream(settings.get("stream"), own);
    pub.scheme = own;
    pub.replica = settings.get("mode") == "replica";
    pub.replyTimeout = timeout;
    pub.state = kActive;
  });
}

int ox_pub_close(ox_publisher_t* handle) {
  return call(__func__, {}, handle, [](Publisher& pub, Lock&) {
    require(pub.isOpen(), OX_ERR_INVALIDSTATE);
    closePublisher(pub);
  });
}

int ox_pub_getstate(ox_publisher_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_pub_getscheme(ox_publisher_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, handle, [&](const Publisher& pub, Lock&) {
    require(scheme);
    *scheme = const_cast<ox_scheme_desc_t*>(&schemeOf(pub)->description);
  });
}

int ox_pub_destroy(ox_publisher_t* handle) {
  return call(__func__, {}, handle, [](Publisher& pub, Lock&) { destroy(pub); });
}

int ox_pub_msgnew(ox_publisher_t* handle, int keyType, const void* key, ox_msg_t** msg) {
  const char* const name = keyType == OX_KEY_NAME ? static_cast<const char*>(key) : "";
  return call(__func__, {name}, handle, [&](const Publisher& pub, Lock&) {
    require(key && msg);
    require(pub.isOpen(), OX_ERR_INVALIDSTATE);
    auto made = std::make_unique<Outgoing>();
    made->owner = &pub;
    const std::shared_ptr<const Scheme> scheme = schemeOf(pub);
    made->description = {scheme, scheme->find(keyType, key)};
    require(made->description.get());
    const Scheme::Message& message = *made->description;
    made->type = pub.replica ? OX_MSG_STREAM_DATA : OX_MSG_DATA;
    if (message.code != 0) made->type = message.code;
    made->payload.resize(message.description.size);
    Record& record = made->record;
    record.head = {made->type, made->payload.size(), nullptr, 0};
    if (!made->payload.empty()) record.head.data = made->payload.data();
    record.data.msg_index = message.index;
    record.data.msg_id = message.id;
    record.data.msg_name = message.description.name;
    if (made->type == OX_MSG_STREAM_DATA) {
      made->nulls.resize(message.description.num_fields);
      record.row.num_nulls = made->nulls.size();
      record.row.nulls = made->nulls.data();
    }
    *msg = &made->record.head;
    gateway().outgoing.emplace(*msg, std::move(made));
  });
}

int ox_pub_post(ox_publisher_t* handle, ox_msg_t* msg, int flags) {
  return call(__func__, {}, handle, [&](Publisher& pub, Lock&) {
    require(pub.isOpen(), OX_ERR_INVALIDSTATE);
    Stream& stream = *pub.stream;
    KnownRecord known = knownRecord(msg);
    require(known.outgoing ? known.outgoing->owner == &pub : known.whole);
    Record& record = known.record;
    const bool isRow = record.head.type == OX_MSG_STREAM_DATA;
    const Description message = describe(stream, known);
    // It would be retained nowhere, and nobody told where no listener is open.
    require(message || !isRow);
    if (flags & standin::kClearDeleted) {
      require(isRow);
      requireRoom(stream, true);
      return clearDeleted(stream, message->position, record.row.rev);
    }
    require(!isRow || !(flags & standin::kReplyWanted));
    const bool refers = !isRow && record.data.ref_msg;
    const KnownRecord ref = refers ? knownRecord(&record.data.ref_msg->head) : KnownRecord{};
    require(!refers || (ref.whole && ref.record.head.type != OX_MSG_STREAM_DATA));

    const bool asks = (flags & standin::kReplyWanted) != 0;
    require(!asks || pub.awaited.size() < pub.conn->queueLimit, standin::kQueueFull);
    requireRoom(stream, false);

    const std::uint32_t userId = isRow ? 0 : record.data.user_id;
    const std::uint64_t serial = ++gateway().lastSerial;
    if (message) {
      record.head.reserved = serial;
      record.data.msg_index = message->index;
      record.data.msg_id = message->id;
      if (isRow) record.row.rev = stream.rev + 1;
      publish(stream, copyOf(record, message, ref.description), isRow ? message.get() : nullptr);
    } else {
      const std::int32_t code = OX_ERR_INVALIDARGUMENT;
      const char* const name = record.data.msg_name;
      publish(stream, makeMessage(OX_MSG_PARSEERR, &code, sizeof code, name, userId), nullptr);
    }
    // A message that refers to one which was delivered is its reply.
    if (refers && !ref.outgoing) {
      for (const auto& [other, asking] : gateway().publishers) {
        asking->awaited.erase(ref.record.head.reserved);
      }
    }
    if (asks) {
      pub.awaited[serial] = {Clock::now() + pub.replyTimeout, userId};
      pub.conn->changed.notify_all();  // its wait may have to end earlier now
    }
  });
}

int ox_pub_msgfree(ox_publisher_t* handle, ox_msg_t* msg) {
  return call(__func__, {}, handle, [&](const Publisher& pub, Lock&) {
    const auto found = gateway().outgoing.find(msg);
    require(found != gateway().outgoing.end() && found->second->owner == &pub);
    gateway().outgoing.erase(found);
  });
}
