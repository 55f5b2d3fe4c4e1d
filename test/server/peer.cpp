#include "test/server/peer.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace oxli::test {
namespace {

void check(int result, const char* step) {
  if (result == OX_ERR_OK) return;
  std::fprintf(stderr, "%s: %#x\n", step, static_cast<unsigned>(result));
  std::_Exit(3);
}

int publish(const std::string& connection, const std::string& publisher, int32_t keys,
            int64_t last) {
  Peer peer(connection, publisher);
  for (int64_t value = 1; last == 0 || value <= last; ++value) {
    check(peer.post(keyOf(value, keys), value), "post");
    // Pauses, so that listeners are not slower than this publisher on a machine with few cores.
    if (value % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  check(ox_pub_close(peer.pub), "close publisher");
  check(ox_env_close(), "close environment");
  return 0;
}

int onRequest(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* peer) {
  if (msg->type != OX_MSG_DATA) return OX_ERR_OK;
  auto* const request = reinterpret_cast<ox_msg_data_t*>(msg);
  Item item{};
  std::memcpy(&item, msg->data, sizeof item);
  if (item.value % 2 != 0) return OX_ERR_OK;
  auto& replying = *static_cast<Peer*>(peer);
  ox_msg_t* reply = nullptr;
  check(ox_pub_msgnew(replying.pub, OX_KEY_NAME, "item", &reply), "new reply");
  std::memcpy(reply->data, msg->data, sizeof item);
  reinterpret_cast<ox_msg_data_t*>(reply)->ref_msg = request;
  check(ox_pub_post(replying.pub, reply, 0), "reply");
  return ox_pub_msgfree(replying.pub, reply);
}

int reply(const std::string& connection, const std::string& listener,
          const std::string& publisher) {
  Peer peer(connection, publisher);
  ox_listener_t* lsn = nullptr;
  check(ox_lsn_new(peer.conn, listener.c_str(), onRequest, &peer, &lsn), "new listener");
  check(ox_lsn_open(lsn, ""), "open listener");
  for (;;) check(ox_conn_process(peer.conn, 1000, nullptr), "process");
}

}  // namespace

Peer::Peer(const std::string& connection, const std::string& publisher) {
  const int opened = ox_env_open("");
  check(opened == OX_ERR_INVALIDSTATE ? OX_ERR_OK : opened, "environment");
  check(ox_conn_new("", &conn), "new connection");
  check(ox_conn_open(conn, connection.c_str()), "open connection");
  check(ox_pub_new(conn, kItems.c_str(), &pub), "new publisher");
  check(ox_pub_open(pub, publisher.c_str()), "open publisher");
  check(ox_pub_msgnew(pub, OX_KEY_NAME, "item", &msg_), "new message");
}

int Peer::post(int32_t key, int64_t value, int flags) {
  const Item item{key, value};
  std::memcpy(msg_->data, &item, sizeof item);
  return ox_pub_post(pub, msg_, flags);
}

int runPeer(int count, char** arguments) {
  const std::string command = arguments[1];
  if (command == "publish" && count == 6) {
    return publish(arguments[2], arguments[3], std::atoi(arguments[4]), std::atoll(arguments[5]));
  }
  if (command == "reply" && count == 5) return reply(arguments[2], arguments[3], arguments[4]);
  return 2;
}

}  // namespace oxli::test
