#include "standin/gateway.h"

using namespace standin;

namespace {

// One object for equal texts, so that schemes are told apart by their addresses.
std::shared_ptr<const Scheme> extractScheme(Settings& settings) {
  if (!settings.has("scheme")) return nullptr;
  const std::string text = settings.extractNested("scheme");
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
  require(pub.stream && pub.stream->scheme(), "the stream has no scheme yet", OX_ERR_INVALIDSTATE);
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
    require(out, "the publisher's out-parameter is null");
    const auto pub = std::make_shared<Publisher>();
    pub->conn = gateway().connections.live(handle);
    pub->settings.add(settings);
    pub->scheme = extractScheme(pub->settings);
    conn.publishers.push_back(pub);
    *out = gateway().add(pub);
  });
}

int ox_pub_open(ox_publisher_t* handle, const char* string) {
  return call(__func__, {string}, handle, [&](Publisher& pub, Lock&) {
    Settings settings = pub.settings;
    settings.add(string);
    const std::shared_ptr<const Scheme> scheme = extractScheme(settings);
    // Another one would release descriptions that the host may use.
    require(!pub.scheme || !scheme || scheme == pub.scheme, "the publisher has another scheme");
    const std::shared_ptr<const Scheme> own = pub.scheme ? pub.scheme : scheme;
    const std::chrono::milliseconds timeout(
        settings.extractNumber<std::uint32_t>("reply_timeout", 1000));
    const bool replica = extractReplica(settings);
    const std::string name = settings.extract("stream");
    require(!pub.isOpen(), "the publisher is open already", OX_ERR_INVALIDSTATE);
    require(pub.conn->isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    logUnknown("ox_pub_open", settings);
    pub.stream = joinStream(name, own);
    pub.scheme = own;
    pub.replica = replica;
    pub.replyTimeout = timeout;
    pub.state = kActive;
  });
}

int ox_pub_close(ox_publisher_t* handle) {
  return call(__func__, {}, handle, [](Publisher& pub, Lock&) {
    require(pub.isOpen(), "the publisher is not open", OX_ERR_INVALIDSTATE);
    closePublisher(pub);
  });
}

int ox_pub_getstate(ox_publisher_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_pub_getscheme(ox_publisher_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, handle, [&](const Publisher& pub, Lock&) {
    require(scheme, "the scheme's out-parameter is null");
    *scheme = const_cast<ox_scheme_desc_t*>(&schemeOf(pub)->description);
  });
}

int ox_pub_destroy(ox_publisher_t* handle) {
  return call(__func__, {}, handle, [](Publisher& pub, Lock&) { destroy(pub); });
}

int ox_pub_msgnew(ox_publisher_t* handle, int keyType, const void* key, ox_msg_t** msg) {
  const char* const name = keyType == OX_KEY_NAME ? static_cast<const char*>(key) : "";
  return call(__func__, {name}, handle, [&](const Publisher& pub, Lock&) {
    require(key && msg, "the key or the message's out-parameter is null");
    require(pub.isOpen(), "the publisher is not open", OX_ERR_INVALIDSTATE);
    auto made = std::make_unique<Outgoing>();
    made->owner = &pub;
    const std::shared_ptr<const Scheme> scheme = schemeOf(pub);
    made->description = {scheme, scheme->find(keyType, key)};
    require(made->description.get(), "the scheme has no message of that key");
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
    require(pub.isOpen(), "the publisher is not open", OX_ERR_INVALIDSTATE);
    Stream& stream = *pub.stream;
    KnownRecord known = knownRecord(msg);
    require(!known.outgoing || known.outgoing->owner == &pub, "the message is another publisher's");
    require(known.whole, "a service message cannot be posted");
    Record& record = known.record;
    const bool isRow = record.head.type == OX_MSG_STREAM_DATA;
    const Description message = describe(stream, known);
    // It would be retained nowhere, and nobody told where no listener is open.
    require(message || !isRow, "the stream's scheme does not describe the row");
    if (flags & standin::kClearDeleted) {
      require(isRow, "only the rows of a message can be cleared");
      requireRoom(stream, true);
      return clearDeleted(stream, message->position, record.row.rev);
    }
    if ((flags & ~(standin::kReplyWanted | standin::kClearDeleted)) != 0 && isLogging()) {
      writeLog("info",
               "ox_pub_post: unknown bits of flags " + std::to_string(flags) + " are ignored");
    }
    require(!isRow || !(flags & standin::kReplyWanted), "there is no reply to a row");
    const bool refers = !isRow && record.data.ref_msg;
    const KnownRecord ref = refers ? knownRecord(&record.data.ref_msg->head) : KnownRecord{};
    require(!refers || (ref.whole && ref.record.head.type != OX_MSG_STREAM_DATA),
            "the message refers to one that is not a data message");

    const bool asks = (flags & standin::kReplyWanted) != 0;
    require(!asks || pub.awaited.size() < pub.conn->queueLimit,
            "the publisher waits for too many replies", standin::kQueueFull);
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
      if (isLogging()) {
        writeLog("info", "ox_pub_post: the scheme of stream=" + stream.name +
                             " does not describe " + (name ? name : "the message") +
                             ": a parse error to its listeners");
      }
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
    require(found != gateway().outgoing.end() && found->second->owner == &pub,
            "the message is not one of the publisher's");
    gateway().outgoing.erase(found);
  });
}
