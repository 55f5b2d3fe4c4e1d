// Tests the stand-in gateway through its C functions.
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include "oxli.h"
#include "standin/control.h"
#include "test/support/private_server.h"

namespace {

const std::string kScheme =
    "scheme=?{messages=leg,quote;message.leg=?{fields=price:d};"
    "message.quote=?{id=7;desc=Best prices;hints=?{group=market;zone=a};"
    "fields=isin:c12,side:u1,leg:m,volume:u8,note:z;indices=pk,late;index.late=?{fields=volume};"
    "index.pk=?{fields=isin,side:1;desc=Key;hints=?{unique=1}};"
    "field.side=?{desc=Side;values=?{buy=1:Buyer;sell=2}};"
    "field.leg=?{message=leg};field.volume=?{offset=24}}};";
const std::string kReplica = kScheme + "mode=replica";

// A short name of a message: what it is, and what tells it from others of its kind.
std::string word(const ox_msg_t& msg) {
  const auto& data = reinterpret_cast<const ox_msg_data_t&>(msg);
  const auto& row = reinterpret_cast<const ox_msg_streamdata_t&>(msg);
  const std::string string = msg.data ? static_cast<const char*>(msg.data) : "";
  int32_t value = 0;
  if (msg.data) std::memcpy(&value, msg.data, sizeof value);
  const std::string number = std::to_string(value);
  if (msg.type == OX_MSG_OPEN) return "open";
  if (msg.type == OX_MSG_CLOSE) return "close" + number;
  if (msg.type == OX_MSG_TN_BEGIN) return "{";
  if (msg.type == OX_MSG_TN_COMMIT) return "}";
  if (msg.type == OX_MSG_PARSEERR) return "error" + number;
  if (msg.type == OX_MSG_ZRREPL_LIFENUM) return value == 0 ? "life0" : "life";
  if (msg.type == OX_MSG_ZRREPL_ONLINE) return "online";
  if (msg.type == OX_MSG_ZRREPL_STATE) return string.substr(string.find("rev="));
  if (msg.type == OX_MSG_ZRMQ_TIMEOUT) return "timeout" + std::to_string(data.user_id);
  if (msg.type == OX_MSG_ZRREPL_CLEARDELETED) return "clear" + number;
  if (msg.type == OX_MSG_STREAM_DATA) return string + '#' + std::to_string(row.rev);
  return string + '/' + std::to_string(data.user_id) + data.addr +
         (data.ref_msg ? "->" + word(data.ref_msg->head) : "");
}

// A listener and the words of the messages that it received; `on` decides its result.
struct Inbox {
  static int receive(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* data) {
    auto& self = *static_cast<Inbox*>(data);
    if (msg->type == OX_MSG_ZRREPL_STATE) self.state = static_cast<const char*>(msg->data);
    self.words += (self.words.empty() ? "" : " ") + word(*msg);
    return self.on ? self.on(*msg) : OX_ERR_OK;
  }

  ox_listener_t* lsn = nullptr;
  std::string words;
  std::string state;  // the latest replication state
  std::function<int(ox_msg_t&)> on;
};

class StandinTest : public ::testing::Test {
 protected:
  void SetUp() override {
    standin::recordCalls(true);
    if (onServer()) {
      ASSERT_EQ("+OK\r\n", server().command("FLUSHALL"));
    }
    ASSERT_EQ(OX_ERR_OK, ox_env_open("platform=java"));
    conn = connect();
  }
  void TearDown() override {
    ox_env_close();
    EXPECT_EQ(0u, standin::liveObjects());
    standin::clearCalls();
    standin::recordCalls(false);
  }

  // Whether the streams are those of a server rather than of this process.
  static bool onServer() { return std::getenv("OXLI_TEST_SERVER") != nullptr; }
  static oxli::test::PrivateServer& server() {
    static oxli::test::PrivateServer instance({"--appendfsync", "no"});
    return instance;
  }
  static ox_conn_t* connect(const std::string& settings = "") {
    ox_conn_t* made = nullptr;
    const std::string at = onServer() ? "server=" + server().address() + ';' : "";
    EXPECT_EQ(OX_ERR_OK, ox_conn_new(at.c_str(), &made));
    EXPECT_EQ(OX_ERR_OK, ox_conn_open(made, settings.c_str()));
    return made;
  }
  static void listen(ox_conn_t* on, Inbox& to, const std::string& settings = "") {
    ASSERT_EQ(OX_ERR_OK, ox_lsn_new(on, "stream=quotes", Inbox::receive, &to, &to.lsn));
    EXPECT_TRUE(standin::settle());
    ASSERT_EQ(OX_ERR_OK, ox_lsn_open(to.lsn, settings.c_str()));
  }
  ox_publisher_t* publish(const std::string& settings) const {
    ox_publisher_t* made = nullptr;
    EXPECT_EQ(OX_ERR_OK, ox_pub_new(conn, "stream=quotes", &made));
    EXPECT_EQ(OX_ERR_OK, ox_pub_open(made, settings.c_str()));
    return made;
  }
  void start(const std::string& settings = kScheme) {
    pub = publish(settings);
    listen(conn, inbox);
  }
  static ox_msg_data_t* make(ox_publisher_t* pub, const char* isin = "") {
    ox_msg_t* msg = nullptr;
    EXPECT_EQ(OX_ERR_OK, ox_pub_msgnew(pub, OX_KEY_NAME, "quote", &msg));
    std::strcpy(static_cast<char*>(msg->data), isin);
    return reinterpret_cast<ox_msg_data_t*>(msg);
  }
  static void post(ox_publisher_t* pub, const char* isin) {
    EXPECT_EQ(OX_ERR_OK, ox_pub_post(pub, &make(pub, isin)->head, 0));
  }
  int process(int timeout = 0) const { return process(conn, timeout); }
  static int process(ox_conn_t* on, int timeout = 0) {
    EXPECT_TRUE(standin::settle());
    return ox_conn_process(on, timeout, nullptr);
  }
  std::string received(int timeout = 0) {
    EXPECT_EQ(OX_ERR_OK, process(timeout));
    return flush();
  }
  std::string flush() { return std::exchange(inbox.words, {}); }
  // A result, and what log lines say of it: those since this was called last.
  static std::string logged(int result) {
    std::string what = result == OX_ERR_OK                ? "ok"
                       : result == OX_ERR_INVALIDARGUMENT ? "argument"
                       : result == OX_ERR_INVALIDSTATE    ? "state"
                                                          : "other";
    for (const std::string& line : standin::logLines()) {
      what += line.substr(line.find(": ", line.find(": ") + 1));  // without level and function
    }
    standin::clearCalls();
    return what;
  }

  ox_conn_t* conn = nullptr;
  ox_publisher_t* pub = nullptr;
  Inbox inbox;
};

TEST_F(StandinTest, EveryListenerGetsACopyOfWhatWasPosted) {
  ox_conn_t* other = connect();
  start();
  Inbox far;
  listen(other, far);
  auto* msg = make(pub, "A");
  auto* ref = make(pub, "B");
  char addr[] = "here";
  msg->addr = ref->addr = addr;
  msg->ref_msg = ref;
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &msg->head, 0));
  addr[0] = 'x';
  std::strcpy(static_cast<char*>(msg->head.data), "C");
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgfree(pub, &ref->head));
  ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(pub));
  EXPECT_EQ("open A/0here->B/0here close1", received());
  EXPECT_EQ(OX_ERR_OK, process(other));
  EXPECT_EQ("open A/0here->B/0here close1", far.words);
}

std::string schemeOf(const std::string& leg, const std::string& quote) {
  return "mode=replica;scheme=?{messages=leg,arm,quote;message.leg=?{fields=" + leg +
         "};message.arm=?{fields=size:u4,price:i4};message.quote=?{fields=" + quote + "}}";
}

TEST_F(StandinTest, AnotherLayoutIsRefusedOrMakesTheStreamAnew) {
  const std::string legs = "price:i4,size:u4";
  const std::string nested = ";field.leg=?{message=leg}";
  start(schemeOf(legs, "isin:c12,leg:m" + nested));
  post(pub, "A");
  inbox.on = [](ox_msg_t& msg) {
    const auto& row = reinterpret_cast<const ox_msg_streamdata_t&>(msg);
    return msg.type == OX_MSG_OPEN || row.msg_index == 2 ? 0 : 1;
  };
  ox_publisher_t* other =
      publish("mode=replica;scheme=?{messages=leg,quote;message.leg=?{desc=Leg;fields=" + legs +
              "};message.quote=?{fields=isin:c12,leg:m" + nested + "}}");
  post(other, "B");
  ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(other));
  EXPECT_EQ("open A#1 B#2", received());
  inbox.on = {};

  // Most are of the same size.
  const std::string layouts[] = {schemeOf(legs, "leg:m,isin:c12" + nested),
                                 schemeOf("size:u4,price:i4", "isin:c12,leg:m" + nested),
                                 schemeOf(legs, "isin:c12,leg:m;field.leg=?{message=arm}"),
                                 schemeOf(legs, "isin:c12,leg:i8"),
                                 schemeOf(legs, "isin:c12,leg:m;field.isin=?{offset=8}" + nested),
                                 schemeOf(legs, "name:c12,leg:m" + nested),
                                 schemeOf(legs, "isin:c12,leg:m,more:i8" + nested)};
  for (const std::string& layout : layouts) {
    ASSERT_EQ(OX_ERR_OK, ox_pub_new(conn, layout.c_str(), &other));
    EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_open(other, "stream=quotes")) << layout;
  }
  ASSERT_EQ(OX_ERR_OK, ox_pub_close(pub));
  EXPECT_EQ("close1", received());
  ASSERT_EQ(OX_ERR_OK, ox_lsn_open(inbox.lsn, "mode=replica"));
  EXPECT_EQ("open life { A#1 B#2 } online", received());
  ASSERT_EQ(OX_ERR_OK, ox_pub_open(other, "stream=quotes"));
  post(other, "C");
  EXPECT_EQ("rev=2 close1", received());
  const std::string resume = "mode=replica;replstate=?{" + inbox.state + '}';
  ASSERT_EQ(OX_ERR_OK, ox_lsn_open(inbox.lsn, resume.c_str()));
  EXPECT_EQ("open life { C#1 } online", received());
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_open(pub, ""));
  ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(pub));  // and with it the old stream
  post(publish(layouts[6]), "D");
  EXPECT_EQ("{ D#2 }", received());
}

TEST_F(StandinTest, UnknownMessagesAreParseErrorsAndUnknownRowsAreRefused) {
  start();
  Inbox other;
  other.on = [&](ox_msg_t& msg) {
    if (msg.type < OX_MSG_DATA) return 0;
    EXPECT_EQ(msg.type == OX_MSG_DATA ? OX_ERR_OK : OX_ERR_INVALIDARGUMENT,
              ox_pub_post(pub, &msg, 0));
    return 0;
  };
  listen(conn, other, "stream=other");
  const std::string settings =
      "stream=other;scheme=?{messages=quote;message.quote=?{fields=isin:c44}};";
  post(publish(settings), "A");
  post(publish(settings + "mode=replica"), "B");
  EXPECT_EQ("open", received());
  EXPECT_EQ("error131073", received());
  EXPECT_EQ("open A/0 B#1", other.words);
}

// The descriptions that schemes become are tested where they are converted.
TEST_F(StandinTest, DumpsFollowTheScheme) {
  start(kReplica);
  ox_scheme_desc_t* scheme = nullptr;
  ASSERT_EQ(OX_ERR_OK, ox_lsn_getscheme(inbox.lsn, &scheme));
  const std::string head = "type=288\nsize=44\nname=quote\nuser_id=0\nrev=0\n";
  const std::string fields = "isin=null\nside=0\nleg.price=0\nvolume=null\nnote=0 bytes\n";
  auto* row = reinterpret_cast<ox_msg_streamdata_t*>(make(pub, "XS1"));
  const_cast<uint8_t*>(row->nulls)[0] = const_cast<uint8_t*>(row->nulls)[3] = 1;
  for (const bool invalid : {false, true}) {  // an address of no scheme is not read
    std::string lines(200, '\0');
    uint64_t size = lines.size();
    const int64_t argument = reinterpret_cast<intptr_t>(scheme) + invalid;
    EXPECT_EQ(OX_ERR_OK, ox_msg_dump(&row->head, argument, lines.data(), &size));
    EXPECT_EQ(invalid ? head : head + fields, lines.substr(0, size));
  }
}

TEST_F(StandinTest, RefusedSchemesAreLoggedWithPlaceAndKey) {
  const auto create = [&](const std::string& scheme) {
    logged(0);
    return logged(ox_pub_new(conn, ("scheme=?{" + scheme + '}').c_str(), &pub));
  };
  const std::string before = "messages=m,a;message.m=?{fields=n:u1};";
  const std::string prefix = "argument: scheme: ";
  // Each scheme is followed by a line with its error. Most have only a message `a`.
  std::ifstream cases(OXLI_REFUSED_SCHEMES);
  int count = 0;
  for (std::string scheme, error; getline(cases, scheme) && getline(cases, error); ++count) {
    if (scheme.find("message.a") == 0) scheme = before + scheme;
    EXPECT_EQ(prefix + error.substr(2), create(scheme));
  }
  EXPECT_EQ(28, count);

  const auto ofFields = [&](int fields, const std::string& others) {  // a0:u1,a1:u1 and so on
    std::string list = "a0:u1";
    for (int i = 1; i < fields; ++i) list += ",a" + std::to_string(i) + ":u1";
    return create(before + "message.a=?{fields=" + list + others + '}');
  };
  EXPECT_EQ("ok", ofFields(4096, ""));
  EXPECT_EQ(prefix + "message.a: fields has more than 4096 items", ofFields(4097, ""));
  EXPECT_EQ(prefix + "message.a: field.n: more than 4096 fields with those of nested messages",
            ofFields(4095, ",n:m;field.n=?{message=m}"));
  EXPECT_EQ(prefix + "message.a: unknown key \\n id", create(before + "message.a=?{\n id=1}"));
}

TEST_F(StandinTest, ReplicaGetsSnapshotChangesAndResumes) {
  pub = publish(kReplica);
  for (const char* isin : {"A", "B", "A"}) post(pub, isin);
  Inbox plain;
  listen(conn, plain);
  listen(conn, inbox, "mode=replica");
  EXPECT_EQ("open life { B#2 A#3 } online", received());

  auto* row = reinterpret_cast<ox_msg_streamdata_t*>(make(pub, "C"));
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &row->head, 0));
  row->rev = 3;
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &row->head, standin::kClearDeleted));
  EXPECT_EQ("{ C#4 } { clear1 }", received());
  EXPECT_EQ("open C#4", plain.words);

  post(pub, "D");
  EXPECT_EQ(OX_ERR_OK, ox_lsn_close(inbox.lsn));
  EXPECT_EQ("rev=4 close0", flush());
  const std::string quoted = "mode=replica;replstate=\"" + inbox.state + '"';
  EXPECT_TRUE(standin::settle());
  ASSERT_EQ(OX_ERR_OK, ox_lsn_open(inbox.lsn, quoted.c_str()));
  EXPECT_EQ("open life { clear1 D#5 } online", received());
  ASSERT_EQ(OX_ERR_OK, ox_lsn_close(inbox.lsn));
  const std::string resume = "mode=replica;replstate=?{" + inbox.state + '}';
  ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(inbox.lsn));
  inbox = {};
  listen(conn, inbox, "mode=replica");
  EXPECT_EQ("open life { A#3 C#4 D#5 } online", received());

  // A stream made anew, here or in another process, has no rows of the state's life number. On a
  // server it lives until the server is emptied.
  for (Inbox* each : {&inbox, &plain}) ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(each->lsn));
  ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(pub));
  for (const bool reopened : {onServer(), true}) {
    if (reopened) {
      TearDown();
      SetUp();
    }
    inbox = {};
    post(publish(kReplica), "E");
    listen(conn, inbox, resume);
    EXPECT_EQ("open life { E#1 } online", received());
  }
}

// A replica listener with the table that an application would make: revisions by name.
struct Replica : Inbox {
  Replica() {
    on = [this](ox_msg_t& msg) {
      const auto& row = reinterpret_cast<const ox_msg_streamdata_t&>(msg);
      if (msg.type == OX_MSG_STREAM_DATA) rows[static_cast<char*>(msg.data)] = row.rev;
      if (msg.type != OX_MSG_ZRREPL_CLEARDELETED) return random && (*random)() % 16 == 0 ? 1 : 0;
      ox_data_cleardeleted_t cleared;
      std::memcpy(&cleared, msg.data, sizeof cleared);
      for (auto at = rows.begin(); at != rows.end();) {
        at = at->second < cleared.table_rev ? rows.erase(at) : std::next(at);
      }
      return 0;
    };
  }

  std::map<std::string, int64_t> rows;
  std::minstd_rand* random = nullptr;  // if not null, some deliveries are stopped
};

TEST_F(StandinTest, ResumedReplicasHaveTheSameRowsAsNewOnes) {
  std::minstd_rand random;
  const auto below = [&](int limit) { return static_cast<int>(random()) % limit; };
  Replica resumed;
  pub = publish(kReplica);
  listen(conn, resumed, "mode=replica");
  int64_t rev = 0;
  for (int round = 0; round < (onServer() ? 60 : 300); ++round) {
    for (int changes = below(5); changes > 0; --changes) {
      auto* row = reinterpret_cast<ox_msg_streamdata_t*>(make(pub, &"ABCDEF"[below(6)]));
      row->rev = below(8) == 0 ? INT64_MAX : rev + 3 - below(6);
      const bool clears = below(3) == 0;
      ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &row->head, clears ? standin::kClearDeleted : 0));
      if (!clears) ++rev;
    }
    int32_t state = 0;
    ASSERT_EQ(OX_ERR_OK, ox_lsn_getstate(resumed.lsn, &state));
    if (state != standin::kClosed) {
      resumed.random = &random;
      process();
      ASSERT_EQ(OX_ERR_OK, ox_lsn_close(resumed.lsn));
    }
    if (below(2) == 0) continue;  // more changes
    resumed.random = nullptr;
    const std::string resume = "mode=replica;replstate=?{" + resumed.state + '}';
    ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(resumed.lsn));
    listen(conn, resumed, resume);
    Replica fresh;
    listen(conn, fresh, "mode=replica");
    received();
    ASSERT_EQ(fresh.rows, resumed.rows) << round << ' ' << resumed.words;
    ASSERT_EQ(std::string::npos, fresh.words.find("clear"));
    ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(fresh.lsn));
    resumed.words.clear();
  }
}

TEST_F(StandinTest, DumpsOfDeeplyNestedMessagesNeedLittleStack) {
  std::string names = "m0";
  std::string messages = "message.m0=?{fields=a:u1}";
  for (int level = 1; level < 4096; ++level) {
    const std::string name = 'm' + std::to_string(level);
    names += ',' + name;
    messages +=
        ";message." + name + "=?{fields=a:m;field.a=?{message=m" + std::to_string(level - 1) + "}}";
  }
  pub = publish("scheme=?{messages=" + names + ';' + messages + '}');
  static ox_msg_t* msg;
  static ox_scheme_desc_t* scheme;
  const int32_t last = 4095;
  ASSERT_EQ(OX_ERR_OK, ox_pub_getscheme(pub, &scheme));
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgnew(pub, OX_KEY_INDEX, &last, &msg));
  const auto dump = [](void*) -> void* {
    std::string lines(3 * 4096, '\0');
    uint64_t size = lines.size();
    EXPECT_EQ(OX_ERR_OK, ox_msg_dump(msg, reinterpret_cast<intptr_t>(scheme), lines.data(), &size));
    EXPECT_EQ(".a.a.a=0\n", lines.substr(size - 9, 9));
    return nullptr;
  };
  pthread_t thread;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  ASSERT_EQ(0, pthread_create(&thread, &attributes, dump, nullptr));
  pthread_join(thread, nullptr);
}

TEST_F(StandinTest, StreamsAndSchemesAreReleasedWithTheirLastUser) {
  const std::size_t before = standin::liveObjects();
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_new(conn, "scheme=?{messages=a}", &pub));
  for (const char* name : {"a", "b"}) {
    inbox = {};
    start(kScheme + "stream=" + name);
    EXPECT_LT(before, standin::liveObjects());
    ASSERT_EQ(OX_ERR_OK, ox_lsn_close(inbox.lsn));
    ASSERT_EQ(OX_ERR_OK, ox_lsn_open(inbox.lsn, (std::string("stream=") + name).c_str()));
    ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(pub) + ox_lsn_destroy(inbox.lsn));
    EXPECT_TRUE(standin::settle());
    EXPECT_EQ(before, standin::liveObjects()) << name;
  }
}

const std::string kBlocks =
    "scheme=?{messages=part,quote;message.part=?{fields=n:u1,block:z};"
    "message.quote=?{fields=isin:c4,note:z,part:m;indices=pk;index.pk=?{fields=isin};"
    "field.note=?{offset=17};field.part=?{offset=4;message=part}}};";
constexpr size_t kInner = 5;
constexpr size_t kOuter = 17;

void setBlock(ox_msg_t& msg, size_t offset, ox_zblock_t block) {
  std::memcpy(static_cast<char*>(msg.data) + offset, &block, sizeof block);
}

std::string blocksOf(const ox_msg_t& msg) {
  std::string blocks;
  for (const size_t offset : {kInner, kOuter}) {
    ox_zblock_t block;
    std::memcpy(&block, static_cast<char*>(msg.data) + offset, sizeof block);
    blocks += '+' + std::string(static_cast<char*>(block.ptr), block.size);
  }
  return blocks;
}

void showBlocks(Inbox& inbox, const std::function<void(ox_msg_data_t&)>& then = {}) {
  inbox.on = [&inbox, then](ox_msg_t& msg) {
    if (msg.type != OX_MSG_DATA && msg.type != OX_MSG_STREAM_DATA) return 0;
    auto& data = reinterpret_cast<ox_msg_data_t&>(msg);
    inbox.words += blocksOf(msg);
    if (msg.type == OX_MSG_DATA && data.ref_msg) inbox.words += blocksOf(data.ref_msg->head);
    if (then) then(data);
    return 0;
  };
}

TEST_F(StandinTest, RowsHaveCopiesOfTheirBlocks) {
  start(kBlocks + "mode=replica");
  showBlocks(inbox, [&](ox_msg_data_t& got) {
    if (word(got.head) != "A#1") return;
    EXPECT_EQ(OX_ERR_OK, ox_pub_post(pub, &got.head, 0));
  });
  auto* msg = &make(pub, "A")->head;
  std::string inner = "inner";
  std::string outer = "outer";
  setBlock(*msg, kInner, {5, inner.data()});
  setBlock(*msg, kOuter, {5, outer.data()});
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, msg, 0));
  static_cast<char*>(msg->data)[0] = 'B';
  const_cast<uint8_t*>(reinterpret_cast<ox_msg_streamdata_t*>(msg)->nulls)[2] = 1;
  void* const nowhere = reinterpret_cast<void*>(8);
  setBlock(*msg, kInner, {7, nowhere});  // its field is null
  setBlock(*msg, kOuter, {0, nowhere});
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, msg, 0));
  setBlock(*msg, kOuter, {1, nullptr});
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_post(pub, msg, 0));
  setBlock(*msg, kOuter, {});
  --reinterpret_cast<ox_msg_streamdata_t*>(msg)->num_nulls;
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_post(pub, msg, 0));
  inner = outer = "other";
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgfree(pub, msg));
  EXPECT_EQ("open A#1+inner+outer B#2++", received());
  EXPECT_EQ("A#3+inner+outer", received());

  Inbox late;
  showBlocks(late);
  listen(conn, late, "mode=replica");
  received();
  EXPECT_EQ("open life { B#2++ A#3+inner+outer } online", late.words);
}

TEST_F(StandinTest, RepliesAndTheirRequestsHaveCopiesOfTheirBlocks) {
  start(kBlocks);
  auto* msg = make(pub, "A");
  auto* ref = make(pub, "B");
  auto* reply = make(pub, "C");
  std::string inner = "inner";
  std::string outer = "outer";
  for (auto* each : {msg, ref}) {
    each->addr = "";
    setBlock(each->head, kInner, {5, inner.data()});
    setBlock(each->head, kOuter, {5, outer.data()});
  }
  msg->ref_msg = ref;
  showBlocks(inbox, [&](ox_msg_data_t& got) {
    if (word(got.head) != "A/0->B/0") return;
    reply->ref_msg = &got;
    EXPECT_EQ(OX_ERR_OK, ox_pub_post(pub, &reply->head, 0));
    EXPECT_EQ(OX_ERR_OK, ox_pub_post(pub, &got.ref_msg->head, 0));
  });
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &msg->head, 0));
  inner = outer = "other";
  EXPECT_EQ("open A/0->B/0+inner+outer+inner+outer", received());
  EXPECT_EQ("C/0->A/0+++inner+outer B/0+inner+outer", received());
}

TEST_F(StandinTest, UnansweredRequestTimesOut) {
  start(kScheme + "reply_timeout=200");
  auto* msg = make(pub, "A");
  auto* reply = make(pub, "B");
  reply->addr = msg->addr = "";
  inbox.on = [&](ox_msg_t& got) {
    if (word(got).front() != 'A') return 0;
    reply->ref_msg = reinterpret_cast<ox_msg_data_t*>(&got);
    const bool refused = msg->user_id == 2;  // the reply has a block without an address
    static_cast<char*>(reply->head.data)[32] = refused;
    EXPECT_EQ(refused ? OX_ERR_INVALIDARGUMENT : OX_ERR_OK, ox_pub_post(pub, &reply->head, 0));
    static_cast<char*>(reply->head.data)[32] = 0;
    return 0;
  };
  for (const uint32_t user : {1u, 2u}) {
    msg->user_id = user;
    ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &msg->head, standin::kReplyWanted));
    EXPECT_EQ(OX_ERR_OK, process());
  }
  EXPECT_EQ("open A/1 B/0->A/1 A/2", flush());
  EXPECT_EQ("timeout2", received(1000000));
  ox_publisher_t* closed = publish(kScheme + "reply_timeout=0");
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(closed, &make(closed, "C")->head, standin::kReplyWanted));
  ASSERT_EQ(OX_ERR_OK, ox_pub_close(closed));
  EXPECT_EQ("C/0", received());
  // A record whose delivery is over is not read.
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_post(pub, &reply->head, 0));
}

TEST_F(StandinTest, PostsThatExceedAQueueReachNoListener) {
  if (onServer()) GTEST_SKIP() << "a full queue stops the reading from a server, not the posts";
  ox_conn_t* small = nullptr;
  ASSERT_EQ(OX_ERR_OK, ox_conn_new("queue_limit=9", &small));
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_conn_open(small, "queue_limit=0"));
  ASSERT_EQ(OX_ERR_OK, ox_conn_open(small, "queue_limit=4"));
  start(kReplica);
  for (const char* isin : {"A", "B", "C", "D", "E"}) post(pub, isin);  // more than 4 for a snapshot
  Inbox plain, replica;
  listen(small, plain);
  listen(small, replica, "mode=replica");
  auto* row = reinterpret_cast<ox_msg_streamdata_t*>(make(pub, "F"));
  const auto expectRoom = [](int posts, ox_publisher_t* from, ox_msg_t* msg, int flags) {
    for (; posts > 0; --posts) EXPECT_EQ(OX_ERR_OK, ox_pub_post(from, msg, flags));
    EXPECT_EQ(standin::kQueueFull, ox_pub_post(from, msg, flags));
  };
  expectRoom(2, pub, &row->head, 0);
  ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(plain.lsn));  // and what is queued for it
  row->rev = 5;
  expectRoom(2, pub, &row->head, standin::kClearDeleted);
  ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(replica.lsn));
  listen(small, plain);
  expectRoom(4, pub, &row->head, 0);
  EXPECT_EQ(OX_ERR_OK, ox_pub_post(pub, &row->head, standin::kClearDeleted));  // for replicas only
  ASSERT_EQ(OX_ERR_OK, ox_conn_process(small, 0, nullptr));
  post(pub, "G");
  EXPECT_EQ("open A#1 B#2 C#3 D#4 E#5 F#6 F#7 F#8 F#9 F#10 F#11 G#12", received());

  ox_publisher_t* asking = nullptr;
  ASSERT_EQ(OX_ERR_OK, ox_pub_new(small, kScheme.c_str(), &asking));
  ASSERT_EQ(OX_ERR_OK, ox_pub_open(asking, ""));
  expectRoom(4, asking, &make(asking)->head, standin::kReplyWanted);
}

TEST_F(StandinTest, ProcessStopsAtAResultAndNests) {
  start();
  int32_t number = 4;
  ox_msg_t record{OX_MSG_CLOSE, sizeof number, &number, 0};
  EXPECT_TRUE(standin::deliver(inbox.lsn, &record, 3));
  inbox.on = [&](ox_msg_t& msg) {
    if (msg.type == OX_MSG_OPEN) return process() + 1;
    return &msg == &record && ++number == 6 ? 78 : 0;
  };
  EXPECT_EQ(79, process());
  EXPECT_EQ("open close4 close5", flush());
  inbox.on = [&](ox_msg_t&) {
    post(pub, "A");  // without end, if the call delivered it too
    return 0;
  };
  EXPECT_EQ("close6", received());
  EXPECT_EQ("A/0", received());
  standin::failNext("ox_conn_process", 1234);
  EXPECT_EQ(1234, process());
  EXPECT_EQ("A/0", received());
}

TEST_F(StandinTest, OneThreadAtATimeDelivers) {
  using namespace std::chrono_literals;
  start();
  post(pub, "A");
  std::thread next;
  const auto wait = [&] {
    EXPECT_EQ(OX_ERR_OK, process(1000000));
  };  // longer than the test may take
  inbox.on = [&](ox_msg_t& msg) {
    if (msg.type != OX_MSG_OPEN) return 0;
    std::thread([&] { EXPECT_EQ(OX_ERR_OK, process()); }).join();
    EXPECT_EQ("open", inbox.words);
    next = std::thread(wait);
    std::this_thread::sleep_for(20ms);  // the thread waits for its turn
    return 77;
  };
  EXPECT_EQ(77, process());
  next.join();
  next = std::thread(wait);
  std::this_thread::sleep_for(20ms);  // the thread waits for a message
  post(pub, "B");
  next.join();
  EXPECT_EQ("open A/0 B/0", flush());
}

TEST_F(StandinTest, CallbacksMayCloseAndDestroyWhatDelivers) {
  const std::function<int()> ends[] = {
      [&] { return ox_lsn_close(inbox.lsn); }, [&] { return ox_lsn_destroy(inbox.lsn); },
      [&] { return ox_conn_close(conn); }, [&] { return ox_conn_destroy(conn); }, ox_env_close};
  for (const auto& end : ends) {
    inbox = {};
    start();
    post(pub, "A");
    inbox.on = [&](ox_msg_t& msg) {
      return msg.type == OX_MSG_OPEN ? end() : ox_lsn_destroy(inbox.lsn);
    };
    EXPECT_EQ(OX_ERR_OK, process());
    EXPECT_EQ(std::string::npos, inbox.words.find('A')) << inbox.words;
    TearDown();
    SetUp();
  }
}

TEST_F(StandinTest, RefusalsAndIgnoredKeysAreLogged) {
  start();
  ox_publisher_t* other = publish(kScheme);
  ox_publisher_t* rows = publish("stream=rows;" + kReplica);
  ox_publisher_t* bare = nullptr;
  Inbox closed, stale;
  listen(conn, stale);
  ox_msg_t* freed = &make(pub)->head;
  ox_msg_t* msg = &make(pub)->head;
  ox_msg_t* row = &make(rows)->head;
  ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(stale.lsn) + ox_pub_msgfree(pub, freed));
  ASSERT_EQ(OX_ERR_OK, ox_lsn_new(conn, "", Inbox::receive, &closed, &closed.lsn));
  ASSERT_EQ(OX_ERR_OK, ox_pub_new(conn, "stream=none", &bare));
  int32_t number = 0;
  logged(0);
  const std::pair<std::string, const char*> calls[] = {
      {logged(ox_lsn_open(stale.lsn, "")), "argument: the handle is stale or invalid"},
      {logged(ox_lsn_getstate(reinterpret_cast<ox_listener_t*>(conn), &number)),
       "argument: the handle is stale or invalid"},
      {logged(ox_pub_msgfree(pub, freed)),
       "argument: the message is not an outgoing message of the publisher"},
      {logged(ox_pub_msgfree(other, msg)),
       "argument: the message is not an outgoing message of the publisher"},
      {logged(ox_pub_msgnew(pub, OX_KEY_NAME, "none", &freed)),
       "argument: the scheme has no message with that key"},
      {logged(ox_pub_post(pub, freed, 0)),
       "argument: the message is neither outgoing nor being delivered"},
      {logged(ox_pub_post(other, msg, 0)), "argument: the message belongs to another publisher"},
      {logged(ox_pub_post(pub, msg, standin::kClearDeleted)),
       "argument: only rows that the stream's scheme describes can be cleared"},
      {logged(ox_pub_post(rows, row, standin::kReplyWanted)),
       "argument: a row cannot be a request"},
      {logged(ox_pub_post(pub, msg, 4)), "ok: unknown bits of flags 4 are ignored"},
      {logged(ox_conn_process(conn, -1, nullptr)), "argument: the timeout is negative"},
      {logged(ox_conn_open(conn, nullptr)), "argument: the settings string is null"},
      {logged(ox_lsn_open(closed.lsn, "a=?{")),
       "argument: oxutils::Properties: Unable to parse parameters. Syntax error near substring "
       "a=?{"},
      {logged(ox_lsn_open(closed.lsn, "time=soon")),
       "argument: time=soon is not a number in range"},
      {logged(ox_lsn_open(closed.lsn, "mode=all")),
       "argument: mode=all is invalid: it must be \"replica\""},
      {logged(ox_lsn_open(closed.lsn, "replstate=?{rev=x}")),
       "argument: replstate: rev=x is not a number in range"},
      {logged(ox_lsn_open(closed.lsn, "steam=s;replstate=?{revision=1}")),
       "ok: unknown key steam is ignored: replstate: unknown key revision is ignored"},
      {logged(ox_lsn_open(closed.lsn, "")), "state: the listener is open already"},
      {logged(ox_pub_msgnew(bare, OX_KEY_NAME, "quote", &freed)),
       "state: the publisher is not open"},
      {logged(ox_pub_open(bare, "scheme=?{messages=}")),
       "argument: scheme: messages has an empty item"},
      {logged((ox_pub_close(other), ox_pub_open(other, "scheme=?{}"))),
       "argument: the scheme of a publisher cannot be changed"},
      {logged(ox_pub_open(bare, "reply_time=1")), "ok: unknown key reply_time is ignored"},
      {logged(ox_pub_msgnew(bare, 0, &number, &freed)), "state: the stream has no scheme yet"},
      {logged((ox_pub_close(pub), ox_pub_close(pub))), "state: the publisher is not open"},
      {logged((ox_conn_close(conn), process())), "state: the connection is not open"},
      {logged(ox_lsn_open(inbox.lsn, "")), "state: the connection is not open"},
      {logged(ox_conn_open(conn, "x=1")), "ok: unknown key x is ignored"},
      {logged(ox_env_open("")), "state: the environment is open already"},
      {logged((ox_env_close(), process())), "state: the environment is closed"},
      {logged(ox_env_open("a=1;platform=java")),
       "ok: streams without a server end with this process: unknown key a is ignored"}};
  for (const auto& [actual, expected] : calls) EXPECT_EQ(expected, actual);

  ox_env_close();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_env_open("log=stderr;exit_after=x"));
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_env_open("log=file:/"));
  EXPECT_EQ(OX_ERR_OK, ox_log_infostr("the log is closed"));
  EXPECT_EQ(
      "error: ox_env_open: exit_after=x is not a number in range\n"
      "error: ox_env_open: log=file:/ cannot be opened: Is a directory\n",
      ::testing::internal::GetCapturedStderr());
}

}  // namespace
