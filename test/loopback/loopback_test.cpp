// The in-process gateway through its C functions alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "loopback/control.h"
#include "oxli.h"

namespace {

constexpr char kScheme[] =
    "scheme=?{messages=leg,quote,odd;"
    "message.leg=?{fields=price:d};"
    "message.quote=?{id=7;desc=Best prices;hints=?{group=market;zone=a};"
    "fields=isin:c12,side:u1,leg:m,volume:u8,note:z;indices=pk,late;index.late=?{fields=volume};"
    "index.pk=?{fields=isin,side:1;desc=Key;hints=?{unique=1}};"
    "field.side=?{desc=Side;values=?{buy=1:Buyer;sell=2}};"
    "field.leg=?{message=leg};field.volume=?{offset=24}};"
    "message.odd=?{code=768;noindex=1;fields=n:i4}};";
constexpr char kNarrow[] = "scheme=?{messages=quote;message.quote=?{fields=isin:c12}};";

#pragma pack(push, 1)
struct Quote {
  char isin[12];
  uint8_t side;
  int64_t mantissa;
  int8_t scale;
  uint8_t gap[2];
  uint64_t volume;
  ox_zblock_t note;
};
#pragma pack(pop)
static_assert(sizeof(Quote) == 44, "packed as the scheme says");

using Strings = std::vector<std::string>;

template <class T>
T at(const void* data) {
  T value;
  std::memcpy(&value, data, sizeof value);
  return value;
}

// One word a message: its kind and what tells it from others of its kind.
std::string word(const ox_msg_t& msg) {
  static const std::map<uint32_t, std::string> kNames = {{OX_MSG_OPEN, "open"},
                                                         {OX_MSG_CLOSE, "close"},
                                                         {OX_MSG_TN_BEGIN, "{"},
                                                         {OX_MSG_TN_COMMIT, "}"},
                                                         {768, "own"},
                                                         {OX_MSG_ZRREPL_ONLINE, "online"},
                                                         {OX_MSG_PARSEERR, "error"},
                                                         {OX_MSG_TIME, "time"},
                                                         {OX_MSG_ZRREPL_LIFENUM, "life"}};
  if (const auto known = kNames.find(msg.type); known != kNames.end()) {
    const bool isNumbered = msg.data && msg.type != OX_MSG_TIME;
    return known->second + (isNumbered ? std::to_string(at<int32_t>(msg.data)) : "");
  }
  const auto& data = reinterpret_cast<const ox_msg_data_t&>(msg);
  const auto& row = reinterpret_cast<const ox_msg_streamdata_t&>(msg);
  switch (msg.type) {
    case OX_MSG_DATA:
      return std::string(data.msg_name) + '/' + std::to_string(data.user_id) + '/' + data.addr +
             (data.ref_msg ? "->" + std::to_string(data.ref_msg->user_id) : "");
    case OX_MSG_STREAM_DATA:
      return std::string(row.msg_name) + '#' + std::to_string(row.rev) +
             (row.nulls[3] ? "null" : "");
    case OX_MSG_ZRMQ_TIMEOUT:
      return "timeout" + std::to_string(data.user_id);
    case OX_MSG_ZRREPL_CLEARDELETED: {
      const auto cleared = at<ox_data_cleardeleted_t>(msg.data);
      return "clear" + std::to_string(cleared.table_idx) + '<' + std::to_string(cleared.table_rev);
    }
    default:
      return static_cast<const char*>(msg.data);
  }
}

// A listener and what it received; `on` decides the result.
struct Inbox {
  static int receive(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* data) {
    auto& self = *static_cast<Inbox*>(data);
    self.words.push_back(word(*msg));
    return self.on ? self.on(*msg) : OX_ERR_OK;
  }
  Strings take() { return std::exchange(words, {}); }

  ox_listener_t* lsn = nullptr;
  Strings words;
  std::function<int(ox_msg_t&)> on;
};

class Loopback : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(OX_ERR_OK, ox_env_open("platform=java"));
    ASSERT_EQ(OX_ERR_OK, ox_conn_new("", &conn));
    ASSERT_EQ(OX_ERR_OK, ox_conn_open(conn, ""));
  }
  void TearDown() override {
    ox_env_close();
    EXPECT_EQ(0u, loopback::liveObjects());
  }

  void listen(Inbox& to, const std::string& settings = "stream=quotes") const {
    if (!to.lsn) {
      ASSERT_EQ(OX_ERR_OK, ox_lsn_new(conn, "", Inbox::receive, &to, &to.lsn));
    }
    ASSERT_EQ(OX_ERR_OK, ox_lsn_open(to.lsn, settings.c_str()));
  }
  ox_publisher_t* publish(const std::string& settings) const {
    ox_publisher_t* pub = nullptr;
    EXPECT_EQ(OX_ERR_OK, ox_pub_new(conn, "stream=quotes", &pub));
    EXPECT_EQ(OX_ERR_OK, ox_pub_open(pub, settings.c_str()));
    return pub;
  }
  static ox_msg_t* make(ox_publisher_t* pub, const char* name = "quote") {
    ox_msg_t* msg = nullptr;
    EXPECT_EQ(OX_ERR_OK, ox_pub_msgnew(pub, OX_KEY_NAME, name, &msg));
    return msg;
  }
  static void postRow(ox_publisher_t* pub, const char* isin) {
    ox_msg_t* msg = make(pub);
    static uint64_t volume = 0;
    std::memcpy(static_cast<Quote*>(msg->data)->isin, isin, std::strlen(isin));
    static_cast<Quote*>(msg->data)->volume = ++volume;
    EXPECT_EQ(OX_ERR_OK, ox_pub_post(pub, msg, 0));
    EXPECT_EQ(OX_ERR_OK, ox_pub_msgfree(pub, msg));
  }
  Strings received(int timeout = 0) {
    EXPECT_EQ(OX_ERR_OK, process(timeout));
    return inbox.take();
  }
  int process(int timeout = 0) const { return ox_conn_process(conn, timeout, nullptr); }

  ox_conn_t* conn = nullptr;
  Inbox inbox;
};

TEST_F(Loopback, DeliversCopiesOfWhatWasPosted) {
  ox_publisher_t* pub = publish(kScheme);
  listen(inbox);
  auto* msg = reinterpret_cast<ox_msg_data_t*>(make(pub));
  auto* ref = reinterpret_cast<ox_msg_data_t*>(make(pub, "leg"));
  ASSERT_EQ(sizeof(Quote), msg->head.data_size);
  static_cast<Quote*>(msg->head.data)->volume = 99;
  char addr[] = "here";
  msg->addr = addr;
  msg->user_id = 5;
  ref->user_id = 8;
  msg->ref_msg = ref;
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &msg->head, 0));
  addr[0] = 'x';
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgfree(pub, &msg->head));
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgfree(pub, &ref->head));
  inbox.on = [&](ox_msg_t& got) {
    if (got.type != OX_MSG_DATA) return 0;
    const auto& data = reinterpret_cast<ox_msg_data_t&>(got);
    EXPECT_EQ(99u, at<Quote>(got.data).volume);
    EXPECT_EQ(1u, data.msg_index);
    EXPECT_EQ(7u, data.msg_id);
    if (!data.ref_msg) return 0;
    EXPECT_STREQ("leg", data.ref_msg->msg_name);
    reinterpret_cast<ox_msg_data_t&>(got).ref_msg = nullptr;
    return ox_pub_post(pub, &got, 0);  // forwarded as it is
  };
  EXPECT_EQ(OX_ERR_OK, process() + process());
  EXPECT_EQ((Strings{"open", "quote/5/here->8", "quote/5/here"}), inbox.take());

  ox_msg_t* odd = make(pub, "odd");
  std::memset(odd->data, 1, 1);
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, odd, 0));
  ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(pub));
  EXPECT_EQ((Strings{"own1", "close1"}), received());
  int32_t state = -1;
  EXPECT_EQ(OX_ERR_OK, ox_lsn_getstate(inbox.lsn, &state));
  EXPECT_EQ(loopback::kClosed, state);
}

// The scheme, a line a message: fields as name:type@offset+size, indexes, hints.
std::string textOf(const ox_scheme_desc_t& scheme) {
  std::ostringstream text;
  for (const auto* message = scheme.messages; message; message = message->next) {
    text << message->name << ' ' << message->desc << ' ' << message->size;
    for (const auto* field = message->fields; field; field = field->next) {
      text << ' ' << field->name << ':' << field->type << '@' << field->offset << '+' << field->size
           << field->desc << (field->msg ? field->msg->name : "");
      for (const auto* value = field->values; value; value = value->next) {
        text << ',' << value->name << '=' << int{at<uint8_t>(value->int_value)} << value->desc;
      }
    }
    for (const auto* index = message->indices; index; index = index->next) {
      text << ' ' << index->name;
      for (const auto* of = index->fields; of; of = of->next) {
        text << '/' << of->field->name << of->param;
      }
    }
    for (const auto* hint = message->hints; hint; hint = hint->next) {
      text << ' ' << hint->key << '=' << hint->value;
    }
    text << '\n';
  }
  return text.str();
}

TEST_F(Loopback, SchemeTextBecomesDescriptions) {
  ox_publisher_t* pub = publish(kScheme);
  listen(inbox);
  ox_scheme_desc_t* scheme = nullptr;
  ox_scheme_desc_t* published = nullptr;
  ASSERT_EQ(OX_ERR_OK, ox_lsn_getscheme(inbox.lsn, &scheme));
  ASSERT_EQ(OX_ERR_OK, ox_pub_getscheme(pub, &published));
  EXPECT_EQ(scheme, published);
  EXPECT_EQ(
      "leg  9 price:d@0+9\n"
      "quote Best prices 44 isin:c12@0+12 side:u1@12+1Side,buy=1Buyer,sell=2 leg:m@13+9leg"
      " volume:u8@24+8 note:z@32+12 pk/isin0/side1 late/volume0 group=market zone=a\n"
      "odd  4 n:i4@0+4\n",
      textOf(*scheme));
  for (const char* malformed :
       {"messages=a", "messages=a,,b", "messages=a;message.a=?{fields=n:q4}",
        "messages=a;message.a=?{fields=n:i3}", "messages=a;message.a=?{fields=n:i4,n:i4}",
        "messages=a;message.a=?{fields=n:m;field.n=?{message=a}}",
        "messages=a;message.a=?{fields=n:i1;field.n=?{values=?{a=128}}}",
        "messages=a;message.a=?{fields=n:i1;field.n=?{offset=-1}}",
        "messages=a;message.a=?{indices=i;index.i=?{fields=n}}",
        "messages=a;message.a=?{code=288}"}) {
    ox_publisher_t* none = nullptr;
    const std::string text = std::string("scheme=?{") + malformed + '}';
    EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_new(conn, text.c_str(), &none)) << malformed;
  }
}

TEST_F(Loopback, ReplicaGetsSnapshotChangesAndResumes) {
  ox_publisher_t* pub = publish(std::string(kScheme) + "mode=replica");
  for (const char* isin : {"A", "B", "A"}) postRow(pub, isin);
  Inbox plain;
  listen(plain);
  listen(inbox, "stream=quotes;mode=replica");
  EXPECT_EQ((Strings{"open", "life1", "{", "quote#2", "quote#3", "}", "online"}), received());

  auto* row = reinterpret_cast<ox_msg_streamdata_t*>(make(pub));
  ASSERT_EQ(5u, row->num_nulls);
  const uint8_t nulls[] = {0, 0, 0, 1, 0};
  row->nulls = nulls;
  row->user_id = 6;
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &row->head, 0));
  row->rev = 3;
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &row->head, loopback::kClearDeleted));
  EXPECT_EQ((Strings{"{", "quote#4null", "}", "{", "clear1<3", "}"}), received());
  EXPECT_EQ((Strings{"open", "quote#4null"}), plain.take());

  postRow(pub, "C");
  EXPECT_EQ(OX_ERR_OK, ox_lsn_close(inbox.lsn));
  EXPECT_EQ((Strings{"lifenum=1;rev=4", "close0"}), inbox.take());
  listen(inbox, "stream=quotes;mode=replica;replstate=\"lifenum=1;rev=4\"");
  EXPECT_EQ((Strings{"open", "life1", "{", "quote#5", "}", "online"}), received());

  // A stream that nobody holds any more ends with its rows; the next one has another life.
  for (Inbox* each : {&inbox, &plain}) ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(each->lsn));
  ASSERT_EQ(OX_ERR_OK, ox_pub_destroy(pub));
  inbox = {};
  listen(inbox, "stream=quotes;mode=replica;replstate=?{lifenum=1;rev=5}");
  EXPECT_EQ((Strings{"open", "life2", "{", "}", "online"}), received());
}

TEST_F(Loopback, UnansweredRequestTimesOut) {
  ox_publisher_t* pub = publish(std::string(kScheme) + "reply_timeout=200");
  listen(inbox);
  auto* msg = reinterpret_cast<ox_msg_data_t*>(make(pub));
  auto* reply = reinterpret_cast<ox_msg_data_t*>(make(pub));
  bool answering = true;
  inbox.on = [&](ox_msg_t& got) {
    if (!answering || got.type != OX_MSG_DATA) return 0;
    if (reinterpret_cast<ox_msg_data_t&>(got).ref_msg) return 0;
    reply->ref_msg = reinterpret_cast<ox_msg_data_t*>(&got);
    return ox_pub_post(pub, &reply->head, 0);
  };
  for (const uint32_t user : {1u, 2u}) {
    msg->user_id = user;
    ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, &msg->head, loopback::kReplyWanted));
    EXPECT_EQ(OX_ERR_OK, process());
    answering = false;
  }
  EXPECT_EQ((Strings{"open", "quote/1/", "quote/0/->1", "quote/2/"}), inbox.take());
  EXPECT_EQ((Strings{"timeout2"}), received(5000));
  // A record that is no longer being delivered is not to be read.
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_pub_post(pub, &reply->head, 0));
}

TEST_F(Loopback, MessageUnknownToTheStreamIsAParseError) {
  publish(kNarrow);
  ox_publisher_t* other = publish(kScheme);
  listen(inbox, "stream=quotes;time=100");
  postRow(other, "A");
  EXPECT_EQ(OX_ERR_OK, process());
  EXPECT_EQ((Strings{"open", "error" + std::to_string(OX_ERR_INVALIDARGUMENT), "time"}),
            received(5000));
}

TEST_F(Loopback, ProcessStopsAtAResultAndNests) {
  ox_publisher_t* pub = publish(kScheme);
  listen(inbox);
  postRow(pub, "A");
  postRow(pub, "A");
  inbox.on = [&](ox_msg_t& msg) { return msg.type == OX_MSG_OPEN ? process() + 1 : 78; };
  EXPECT_EQ(79, process());
  EXPECT_EQ((Strings{"open", "quote/0/"}), inbox.take());
  inbox.on = [&](ox_msg_t&) {
    postRow(pub, "B");  // for ever, if the call went on with it
    return 0;
  };
  EXPECT_EQ((Strings{"quote/0/"}), received());
}

TEST_F(Loopback, OneThreadAtATimeDeliversWhatAnotherPosts) {
  ox_publisher_t* pub = publish(kScheme);
  listen(inbox);
  std::atomic<int> inside{0};
  inbox.on = [&](ox_msg_t&) {
    EXPECT_EQ(1, ++inside);
    return --inside;
  };
  std::thread threads[3];
  for (auto& thread : threads) {
    thread = std::thread([this] { EXPECT_EQ(OX_ERR_OK, process(200)); });
  }
  for (int i = 0; i < 20; ++i) postRow(pub, "A");
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(OX_ERR_OK, process());
  EXPECT_EQ(21u, inbox.words.size());
}

TEST_F(Loopback, CallbacksMayEndWhatDelivers) {
  for (const auto& end : std::vector<std::function<int()>>{
           [&] { return ox_lsn_close(inbox.lsn); }, [&] { return ox_lsn_destroy(inbox.lsn); },
           [&] { return ox_conn_close(conn); }, [&] { return ox_conn_destroy(conn); },
           [&] { return ox_env_close(); }}) {
    inbox = {};
    ox_publisher_t* pub = publish(kScheme);
    listen(inbox);
    postRow(pub, "A");
    inbox.on = [&](ox_msg_t& msg) { return msg.type == OX_MSG_OPEN ? end() : 0; };
    EXPECT_EQ(OX_ERR_OK, process());
    EXPECT_EQ(0, std::count(inbox.words.begin(), inbox.words.end(), "quote/0/"));
    ox_env_close();
    SetUp();
  }
  inbox = {};
  listen(inbox);
  inbox.on = [&](ox_msg_t&) { return ox_lsn_destroy(inbox.lsn); };
  EXPECT_EQ(OX_ERR_OK, ox_lsn_close(inbox.lsn));
  EXPECT_EQ((Strings{"close0"}), inbox.take());
}

TEST_F(Loopback, DeadHandlesAndForeignRecordsAreRefused) {
  ox_publisher_t* pub = publish(kScheme);
  ox_publisher_t* other = publish(kScheme);
  Inbox alive;
  listen(inbox);
  listen(alive);
  ox_msg_t* freed = make(pub);
  ox_msg_t* lasting = make(pub);
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgfree(pub, freed));
  ASSERT_EQ(OX_ERR_OK, ox_lsn_destroy(inbox.lsn));
  int32_t state = 0;
  uint64_t size = 0;
  ox_scheme_desc_t* scheme = nullptr;
  const int results[] = {ox_lsn_open(inbox.lsn, ""),
                         ox_lsn_getscheme(inbox.lsn, &scheme),
                         ox_lsn_destroy(nullptr),
                         ox_lsn_getstate(reinterpret_cast<ox_listener_t*>(conn), &state),
                         ox_conn_getstate(reinterpret_cast<ox_conn_t*>(&state), &state),
                         ox_pub_msgfree(pub, freed),
                         ox_pub_post(pub, nullptr, 0),
                         ox_pub_post(other, lasting, 0),
                         ox_pub_msgfree(other, lasting),
                         ox_msg_dump(freed, 0, nullptr, &size),
                         ox_conn_open(conn, nullptr),
                         ox_conn_process(conn, -1, nullptr),
                         ox_lsn_open(alive.lsn, "time=soon"),
                         ox_lsn_open(alive.lsn, "no pair"),
                         ox_pub_msgnew(pub, 9, &state, &freed),
                         ox_pub_msgnew(pub, OX_KEY_NAME, "none", &freed)};
  for (size_t i = 0; i < std::size(results); ++i) {
    EXPECT_EQ(OX_ERR_INVALIDARGUMENT, results[i]) << "call " << i;
  }
  for (const auto& [kind, key] : {std::pair{OX_KEY_INDEX, 1}, std::pair{OX_KEY_ID, 7}}) {
    ASSERT_EQ(OX_ERR_OK, ox_pub_msgnew(pub, kind, &key, &freed));
    EXPECT_STREQ("quote", reinterpret_cast<ox_msg_data_t*>(freed)->msg_name);
  }
}

TEST_F(Loopback, CallsOutOfOrderAreRefused) {
  ox_publisher_t* pub = publish("");
  listen(inbox);
  const int32_t position = 0;
  ox_msg_t* msg = nullptr;
  ox_scheme_desc_t* scheme = nullptr;
  const std::function<int()> calls[] = {
      [&] { return ox_env_open(""); },
      [&] { return ox_conn_open(conn, ""); },
      [&] { return ox_lsn_open(inbox.lsn, ""); },
      [&] { return ox_pub_open(pub, ""); },
      [&] { return ox_pub_msgnew(pub, OX_KEY_INDEX, &position, &msg); },
      [&] { return ox_lsn_getscheme(inbox.lsn, &scheme); },
      [&] { return ox_pub_close(pub) + ox_pub_close(pub); },
      [&] { return ox_lsn_close(inbox.lsn) + ox_lsn_close(inbox.lsn); },
      [&] { return ox_conn_close(conn) + process(); },
      [&] { return ox_lsn_open(inbox.lsn, ""); },
      [&] { return ox_env_close() + process(); }};
  for (size_t i = 0; i < std::size(calls); ++i) {
    EXPECT_EQ(OX_ERR_INVALIDSTATE, calls[i]()) << "call " << i;
  }
}

TEST_F(Loopback, TextsSayHowMuchRoomTheyNeed) {
  const struct {
    const char* type;
    std::string bytes, text;
  } values[] = {{"i4", std::string("\xFF\xFF\xFF\xFF", 4), "-1"},
                {"u1", "\xFF", "255"},
                {"c4", std::string("ab\0d", 4), "ab"},
                {"d", std::string("\5\0\0\0\0\0\0\0\1", 9), "0.5"},
                {"d", std::string("\x85\xFF\xFF\xFF\xFF\xFF\xFF\xFF\2", 9), "-1.23"}};
  for (const auto& [type, bytes, expected] : values) {
    char text[32] = {};
    size_t size = expected.size();
    EXPECT_EQ(OX_ERR_BUFFERTOOSMALL, ox_getstr(type, bytes.data(), text, &size));
    EXPECT_EQ(expected.size() + 1, size);
    EXPECT_EQ(OX_ERR_OK, ox_getstr(type, bytes.data(), text, &size));
    EXPECT_EQ(expected, text);
  }
  size_t none = 0;
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_getstr("m", "", nullptr, &none));

  ox_publisher_t* pub = publish(std::string(kScheme) + "mode=replica");
  ox_scheme_desc_t* scheme = nullptr;
  ASSERT_EQ(OX_ERR_OK, ox_pub_getscheme(pub, &scheme));
  auto* row = reinterpret_cast<ox_msg_streamdata_t*>(make(pub));
  const uint8_t nulls[] = {0, 0, 0, 1, 0};
  row->nulls = nulls;
  std::strcpy(static_cast<Quote*>(row->head.data)->isin, "XS1");
  const std::string expected =
      "type=288\nsize=44\nname=quote\nuser_id=0\nrev=0\n"
      "isin=XS1\nside=0\nleg.price=0\nvolume=null\nnote=0 bytes\n";
  std::string text(expected.size(), '\0');
  uint64_t size = text.size() - 1;
  const auto argument = static_cast<int64_t>(reinterpret_cast<intptr_t>(scheme));
  EXPECT_EQ(OX_ERR_BUFFERTOOSMALL, ox_msg_dump(&row->head, argument, text.data(), &size));
  EXPECT_EQ(expected.size(), size);
  EXPECT_EQ(OX_ERR_OK, ox_msg_dump(&row->head, argument, text.data(), &size));
  EXPECT_EQ(expected, text);
  size = text.size();
  EXPECT_EQ(OX_ERR_OK, ox_msg_dump(&row->head, argument + 1, text.data(), &size));
  EXPECT_EQ(expected.find("isin"), size);
}

TEST_F(Loopback, TestsSteerIt) {
  loopback::recordCalls(true);
  loopback::failNext("ox_conn_close", 1234);
  EXPECT_EQ(1234, ox_conn_close(conn));
  EXPECT_EQ(OX_ERR_OK, ox_conn_close(conn));
  EXPECT_EQ(OX_ERR_OK, ox_conn_open(conn, "a=1"));
  EXPECT_EQ(OX_ERR_OK, ox_log_info("%d lines", 2));
  EXPECT_EQ((Strings{"ox_conn_close", "ox_conn_close", "ox_conn_open \"a=1\"",
                     "ox_log_info \"%d lines\""}),
            loopback::calls());
  EXPECT_EQ((Strings{"info: 2 lines"}), loopback::logLines());
  loopback::recordCalls(false);
  loopback::clearCalls();

  ASSERT_EQ(OX_ERR_OK, ox_lsn_new(conn, "", Inbox::receive, &inbox, &inbox.lsn));
  int32_t number = 4;
  ox_msg_t record{OX_MSG_CLOSE, sizeof number, &number, 0};
  EXPECT_TRUE(loopback::deliver(inbox.lsn, &record, 3));
  inbox.on = [&](ox_msg_t& msg) { return &msg == &record && inbox.words.size() == 2 ? 9 : 0; };
  EXPECT_EQ(9, process());
  EXPECT_EQ(OX_ERR_OK, process());
  EXPECT_EQ(OX_ERR_OK, loopback::deliverNow(inbox.lsn, &record));
  EXPECT_EQ((Strings{"close4", "close4", "close4", "close4"}), inbox.take());
}

TEST(LoopbackExit, EventIsRaisedByTheClockOrOnDemand) {
  static std::atomic<int> closed;
  closed = -1;
  EXPECT_FALSE(loopback::raiseExit());
  ox_env_register_exithandler([](void*) { closed = ox_env_close(); }, nullptr);
  ASSERT_EQ(OX_ERR_OK, ox_env_open("exit_after=1"));
  while (closed == -1) std::this_thread::yield();
  EXPECT_EQ(OX_ERR_OK, closed);
  EXPECT_TRUE(loopback::raiseExit());
  EXPECT_EQ(OX_ERR_INVALIDSTATE, closed);
  ox_env_register_exithandler(nullptr, nullptr);
  ASSERT_EQ(OX_ERR_OK, ox_env_open("exit_after=100000"));
  EXPECT_EQ(OX_ERR_OK, ox_env_close());
}

TEST(LoopbackLog, GoesWhereTheSettingsSay) {
  const std::string path = ::testing::TempDir() + "loopback_test.log";
  std::remove(path.c_str());
  ASSERT_EQ(OX_ERR_OK, ox_env_open(("log=file:" + path + ";platform=java").c_str()));
  EXPECT_EQ(OX_ERR_OK, ox_log_error("%s", "trouble"));
  ASSERT_EQ(OX_ERR_OK, ox_env_close());
  EXPECT_EQ(OX_ERR_OK, ox_log_infostr("unheard"));
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  EXPECT_EQ(
      "info: in-process loopback gateway: its streams end with this process\n"
      "error: trouble\n",
      text.str());
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_env_open("log=elsewhere"));
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, ox_env_open("exit_after=soon"));
}

}  // namespace
