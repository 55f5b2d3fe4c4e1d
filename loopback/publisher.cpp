#include "loopback/call.h"
#include "loopback/delivery.h"
#include "loopback/stream.h"

using namespace inproc;

namespace {

void configure(Publisher& pub, const Properties& settings) {
  pub.replica = settings.get("mode") == "replica";
  const auto timeout = number<std::uint32_t>(settings, "reply_timeout", 1000);
  pub.replyTimeout = std::chrono::milliseconds(timeout);
  pub.replyStream = settings.get(settings.has("reply_stream") ? "reply_stream" : "stream");
}

std::shared_ptr<Scheme> schemeIn(const Properties& settings) {
  if (!settings.has("scheme")) return nullptr;
  return std::make_shared<Scheme>(blockText(settings, "scheme"));
}

const std::shared_ptr<Scheme>& schemeOf(const Publisher& pub) {
  const bool borrows = !pub.scheme && pub.stream;
  const std::shared_ptr<Scheme>& scheme = borrows ? pub.stream->scheme : pub.scheme;
  require(scheme != nullptr, OX_ERR_INVALIDSTATE);
  return scheme;
}

const Scheme::Message* messageFor(const Scheme& scheme, int keyType, const void* key) {
  std::int32_t value = 0;
  if (keyType == OX_KEY_NAME) return scheme.byName(static_cast<const char*>(key));
  std::memcpy(&value, key, sizeof value);
  if (keyType == OX_KEY_INDEX) return scheme.byPosition(value);
  return keyType == OX_KEY_ID ? scheme.byId(value) : nullptr;
}

// How the stream's scheme describes a message that is posted; null when it does not.
const Scheme::Message* describe(const Stream& stream, const Outgoing* outgoing,
                                const Content& content) {
  if (!stream.scheme) return nullptr;
  const bool known = outgoing && outgoing->scheme == stream.scheme;
  const Scheme::Message* const message =
      known ? outgoing->message : stream.scheme->byName(content.name);
  return message && message->description->size == content.size ? message : nullptr;
}

// Reads what a message refers to; a record that was delivered is answered by that.
Content readRef(const ox_msg_data_t& ref) {
  const KnownRecord known = knownRecord(&ref.head);
  if (known.outgoing) return read(ref.head, known.type, known.shape);
  const std::uint64_t serial = ref.head.reserved;
  for (const auto& [handle, conn] : gateway().connections.all()) {
    for (auto at = conn->awaited.begin(); at != conn->awaited.end();) {
      at = at->second.serial == serial ? conn->awaited.erase(at) : std::next(at);
    }
  }
  return read(ref.head, known.type, known.shape);
}

}  // namespace

int ox_pub_new(ox_conn_t* conn, const char* settings, ox_publisher_t** out) {
  return call(__func__, {settings}, [&] {
    const Lock lock = enter();
    require(out, OX_ERR_INVALIDARGUMENT);
    auto pub = std::make_shared<Publisher>();
    pub->conn = gateway().connections.get(conn);
    pub->settings = parse(settings);
    configure(*pub, pub->settings);
    pub->declared = pub->scheme = schemeIn(pub->settings);
    pub->conn->publishers.push_back(pub);
    *out = gateway().publishers.add(gateway().newHandle(), pub);
    return OX_ERR_OK;
  });
}

int ox_pub_open(ox_publisher_t* handle, const char* text) {
  return call(__func__, {text}, [&] {
    const Lock lock = enter();
    Publisher& pub = *gateway().publishers.get(handle);
    const std::shared_ptr<Scheme> given = schemeIn(parse(text));
    const Properties settings = parse(text, pub.settings);
    require(!pub.open && pub.conn->open, OX_ERR_INVALIDSTATE);
    configure(pub, settings);
    pub.stream = streamNamed(settings.get("stream"));
    openPublisher(pub, given ? given : pub.declared);
    return OX_ERR_OK;
  });
}

int ox_pub_close(ox_publisher_t* handle) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    Publisher& pub = *gateway().publishers.get(handle);
    require(pub.open, OX_ERR_INVALIDSTATE);
    closePublisher(pub);
    return OX_ERR_OK;
  });
}

int ox_pub_getstate(ox_publisher_t* handle, int32_t* state) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    require(state, OX_ERR_INVALIDARGUMENT);
    *state = gateway().publishers.get(handle)->open ? kActive : kClosed;
    return OX_ERR_OK;
  });
}

int ox_pub_getscheme(ox_publisher_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    require(scheme, OX_ERR_INVALIDARGUMENT);
    *scheme = &schemeOf(*gateway().publishers.get(handle))->description;
    return OX_ERR_OK;
  });
}

int ox_pub_destroy(ox_publisher_t* handle) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    const std::shared_ptr<Publisher> pub = gateway().publishers.get(handle);
    destroyPublisher(pub);
    return OX_ERR_OK;
  });
}

int ox_pub_msgnew(ox_publisher_t* handle, int keyType, const void* key, ox_msg_t** msg) {
  const char* const name = keyType == OX_KEY_NAME ? static_cast<const char*>(key) : "";
  return call(__func__, {name}, [&] {
    const Lock lock = enter();
    require(key && msg, OX_ERR_INVALIDARGUMENT);
    const Publisher& pub = *gateway().publishers.get(handle);
    require(pub.open, OX_ERR_INVALIDSTATE);
    auto made = std::make_unique<Outgoing>();
    made->scheme = schemeOf(pub);
    made->message = messageFor(*made->scheme, keyType, key);
    require(made->message, OX_ERR_INVALIDARGUMENT);
    made->owner = &pub;
    const ox_message_desc_t& description = *made->message->description;
    made->payload.resize(description.size);
    Content content;
    content.data = description.size > 0 ? made->payload.data() : nullptr;
    content.size = description.size;
    content.index = made->message->index;
    content.id = made->message->id;
    content.name = description.name;
    content.addr = nullptr;
    made->type = pub.replica ? OX_MSG_STREAM_DATA : OX_MSG_DATA;
    if (made->message->code != 0) made->type = made->message->code;
    if (made->type == OX_MSG_STREAM_DATA) {
      made->nulls.resize(description.num_fields);
      content.nulls = made->nulls.data();
      content.numNulls = made->nulls.size();
    }
    made->record = recordOf(content, made->type);
    ox_msg_t* const record = &made->record.head;
    gateway().outgoing.emplace(record, std::move(made));
    *msg = record;
    return OX_ERR_OK;
  });
}

int ox_pub_post(ox_publisher_t* handle, ox_msg_t* record, int flags) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    const Publisher& pub = *gateway().publishers.get(handle);
    require(pub.open, OX_ERR_INVALIDSTATE);
    Stream& stream = *pub.stream;
    const KnownRecord known = knownRecord(record);
    const bool isData = known.type == OX_MSG_DATA || known.type == OX_MSG_STREAM_DATA;
    require(known.outgoing ? known.outgoing->owner == &pub : isData && known.shape != Shape::Head,
            OX_ERR_INVALIDARGUMENT);

    Content content = read(*record, known.type, known.shape);
    const Scheme::Message* const message = describe(stream, known.outgoing, content);
    if (flags & loopback::kClearDeleted) {
      require(message && known.shape == Shape::Row, OX_ERR_INVALIDARGUMENT);
      clearDeleted(stream, message->position, content.rev);
      return OX_ERR_OK;
    }
    Content ref;
    const bool refers = content.ref != nullptr;
    if (refers) ref = readRef(*content.ref);
    const std::int32_t parseError = OX_ERR_INVALIDARGUMENT;
    if (message) {
      content.index = message->index;
      content.id = message->id;
    } else {
      content.type = OX_MSG_PARSEERR;
      content.data = &parseError;
      content.size = sizeof parseError;
    }
    const bool isRow = isData && message;
    content.serial = ++gateway().lastSerial;
    content.rev = isRow ? ++stream.rev : 0;
    publish(stream,
            Stored::make(content, refers ? &ref : nullptr, message ? &message->zblocks : nullptr),
            isRow ? message : nullptr);
    if (flags & loopback::kReplyWanted) {
      pub.conn->awaited.emplace(Clock::now() + pub.replyTimeout,
                                AwaitedReply{content.serial, content.userId, pub.replyStream});
      pub.conn->changed.notify_all();  // its wait may have to end earlier now
    }
    return OX_ERR_OK;
  });
}

int ox_pub_msgfree(ox_publisher_t* handle, ox_msg_t* msg) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    const std::shared_ptr<Publisher>& pub = gateway().publishers.get(handle);
    const auto found = gateway().outgoing.find(msg);
    require(found != gateway().outgoing.end() && found->second->owner == pub.get(),
            OX_ERR_INVALIDARGUMENT);
    gateway().outgoing.erase(found);
    return OX_ERR_OK;
  });
}
