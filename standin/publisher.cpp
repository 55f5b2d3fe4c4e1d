#include "standin/delivery.h"
#include "standin/environment.h"
#include "standin/log.h"
#include "standin/stream.h"

using namespace standin;

namespace {

// The setting `scheme`; null if it is missing.
std::shared_ptr<const Scheme> extractScheme(Settings& settings) REQUIRES(sMutex) {
  if (!settings.has("scheme")) return nullptr;
  return sharedScheme(settings.extractNested("scheme"));
}

std::shared_ptr<const Scheme> schemeOf(const Publisher& pub) REQUIRES(sMutex) {
  if (pub.scheme) return pub.scheme;
  require(pub.stream && pub.stream->scheme(), "the stream has no scheme yet", OX_ERR_INVALIDSTATE);
  return pub.stream->scheme();
}

void await(Publisher& pub, std::uint64_t serial, std::uint32_t userId) REQUIRES(sMutex) {
  pub.awaited[serial] = {Clock::now() + pub.replyTimeout, userId};
  pub.conn->changed.notifyAll();  // a waiting thread may have to wake earlier now
}

void noteReply(const Publisher& pub, const KnownRecord& to) REQUIRES(sMutex) {
  const std::uint64_t serial = to.record.head.reserved;
  std::size_t noted = 0;
  for (const auto& [other, asking] : environment().publishers) {
    noted += asking->awaited.erase(serial);
  }
  const std::uint32_t within = to.delivered ? to.delivered->replyWithin : 0;
  if (noted == 0 && within > 0 && pub.sender) {
    pub.sender->noteReply(serial, std::chrono::milliseconds(within));
  }
}

// Waits until the publisher has left its stream, which it does when the server has acknowledged its
// posts. Throws if they are not acknowledged within the post timeout. Sets the state to closed in
// either case. Does nothing without a server.
void awaitLeft(Publisher& pub) REQUIRES(sMutex) {
  const std::shared_ptr<Sender> sender = std::exchange(pub.sender, nullptr);
  if (!sender) return;
  const auto close = [&pub]() REQUIRES(sMutex) {
    if (pub.state == kClosing) pub.state = kClosed;
  };
  try {
    sender->awaitLeft();
  } catch (...) {
    close();
    throw;
  }
  close();
}

}  // namespace

void standin::closePublisher(Publisher& pub) {
  pub.state = pub.sender ? kClosing : kClosed;
  pub.awaited.clear();
  pub.stream->leave(pub);
}

void standin::destroy(Publisher& pub) {
  if (pub.isOpen()) closePublisher(pub);
  auto& outgoing = environment().outgoing;
  for (auto at = outgoing.begin(); at != outgoing.end();) {
    at = at->second->owner == &pub ? outgoing.erase(at) : std::next(at);
  }
  environment().publishers.erase(pub.handle);
  eraseFrom(pub.conn->publishers, pub);
}

int ox_pub_new(ox_conn_t* handle, const char* settings, ox_publisher_t** out) {
  return call(__func__, {settings}, handle, [&](Connection& conn) REQUIRES(sMutex) {
    require(out, "the publisher's out-parameter is null");
    const auto pub = std::make_shared<Publisher>();
    pub->conn = environment().connections.get(handle);
    pub->settings.add(settings);
    pub->scheme = extractScheme(pub->settings);
    conn.publishers.push_back(pub);
    *out = environment().add(pub);
  });
}

int ox_pub_open(ox_publisher_t* handle, const char* string) {
  return call(__func__, {string}, handle, [&](Publisher& pub) REQUIRES(sMutex) {
    Settings settings = pub.settings;
    settings.add(string);
    const std::shared_ptr<const Scheme> given = extractScheme(settings);
    // Another scheme would release descriptions that the application may be using.
    require(!pub.scheme || !given || given == pub.scheme,
            "the scheme of a publisher cannot be changed");
    const std::shared_ptr<const Scheme> scheme = pub.scheme ? pub.scheme : given;
    const std::chrono::milliseconds timeout(
        settings.extractNumber<std::uint32_t>("reply_timeout", 1000));
    const std::string ack = settings.extract("ack");
    if (!ack.empty() && ack != "always") {
      settings.refuse("ack=" + ack + " is invalid: it must be \"always\"");
    }
    const bool replica = extractReplica(settings);
    const std::string stream = settings.extract("stream");
    const Opening opening(pub, "the publisher is open already");
    require(pub.conn->isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    logUnknown("ox_pub_open", settings);
    Stream::join(pub, stream, scheme);
    pub.scheme = scheme;
    pub.acknowledged = !ack.empty();
    pub.replica = replica;
    pub.replyTimeout = timeout;
    pub.state = kActive;
  });
}

int ox_pub_close(ox_publisher_t* handle) {
  return call(__func__, {}, handle, [](Publisher& pub) REQUIRES(sMutex) {
    require(pub.isOpen(), "the publisher is not open", OX_ERR_INVALIDSTATE);
    closePublisher(pub);
    awaitLeft(pub);
  });
}

int ox_pub_getstate(ox_publisher_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_pub_getscheme(ox_publisher_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, handle, [&](const Publisher& pub) REQUIRES(sMutex) {
    require(scheme, "the scheme's out-parameter is null");
    *scheme = const_cast<ox_scheme_desc_t*>(&schemeOf(pub)->description);
  });
}

int ox_pub_destroy(ox_publisher_t* handle) {
  return call(__func__, {}, handle, [](Publisher& pub) REQUIRES(sMutex) {
    destroy(pub);
    awaitLeft(pub);
  });
}

int ox_pub_msgnew(ox_publisher_t* handle, int keyType, const void* key, ox_msg_t** msg) {
  const char* const name = keyType == OX_KEY_NAME ? static_cast<const char*>(key) : "";
  return call(__func__, {name}, handle, [&](const Publisher& pub) REQUIRES(sMutex) {
    require(key && msg, "the key or the message's out-parameter is null");
    require(pub.isOpen(), "the publisher is not open", OX_ERR_INVALIDSTATE);
    const std::shared_ptr<const Scheme> scheme = schemeOf(pub);
    const Scheme::Message* const message = scheme->find(keyType, key);
    require(message, "the scheme has no message with that key");
    auto made = std::make_unique<Outgoing>();
    made->owner = &pub;
    made->description = {scheme, message};
    made->type = pub.replica ? OX_MSG_STREAM_DATA : OX_MSG_DATA;
    if (message->code != 0) made->type = message->code;
    made->payload.resize(message->description.size);
    Record& record = made->record;
    record.head = {made->type, made->payload.size(), nullptr, 0};
    if (!made->payload.empty()) record.head.data = made->payload.data();
    record.data.msg_index = message->index;
    record.data.msg_id = message->id;
    record.data.msg_name = message->description.name;
    if (made->type == OX_MSG_STREAM_DATA) {
      made->nulls.resize(message->description.num_fields);
      record.row.num_nulls = made->nulls.size();
      record.row.nulls = made->nulls.data();
    }
    *msg = &made->record.head;
    environment().outgoing.emplace(*msg, std::move(made));
  });
}

int ox_pub_post(ox_publisher_t* handle, ox_msg_t* msg, int flags) {
  return call(__func__, {}, handle, [&](Publisher& pub) REQUIRES(sMutex) {
    require(pub.isOpen(), "the publisher is not open", OX_ERR_INVALIDSTATE);
    if ((flags & ~(kReplyWanted | kClearDeleted)) != 0 && isLogging()) {
      writeLog("info",
               "ox_pub_post: unknown bits of flags " + std::to_string(flags) + " are ignored");
    }
    KnownRecord known = knownRecord(msg);
    require(!known.outgoing || known.outgoing->owner == &pub,
            "the message belongs to another publisher");
    require(known.whole, "only data messages and rows can be posted");
    if (flags & kClearDeleted) return pub.stream->clear(pub, known);
    Record& record = known.record;
    const bool isRow = record.head.type == OX_MSG_STREAM_DATA;
    const bool wantsReply = (flags & kReplyWanted) != 0;
    require(!isRow || !wantsReply, "a row cannot be a request");
    const bool refers = !isRow && record.data.ref_msg;
    const KnownRecord ref = refers ? knownRecord(&record.data.ref_msg->head) : KnownRecord{};
    require(!refers || (ref.whole && ref.record.head.type != OX_MSG_STREAM_DATA),
            "the message refers to one that is not a data message");
    require(!wantsReply || pub.awaited.size() < pub.conn->queueLimit,
            "the publisher waits for too many replies", kQueueFull);

    const std::uint64_t serial = ++environment().lastSerial;
    record.head.reserved = serial;
    pub.stream->post(pub, known, ref.description,
                     wantsReply ? pub.replyTimeout : std::chrono::milliseconds());
    // A message that refers to a delivered one is the reply to it.
    if (refers && !ref.outgoing) noteReply(pub, ref);
    if (wantsReply) await(pub, serial, record.data.user_id);
  });
}

int ox_pub_msgfree(ox_publisher_t* handle, ox_msg_t* msg) {
  return call(__func__, {}, handle, [&](const Publisher& pub) REQUIRES(sMutex) {
    auto& outgoing = environment().outgoing;
    const auto found = outgoing.find(msg);
    require(found != outgoing.end() && found->second->owner == &pub,
            "the message is not an outgoing message of the publisher");
    outgoing.erase(found);
  });
}
