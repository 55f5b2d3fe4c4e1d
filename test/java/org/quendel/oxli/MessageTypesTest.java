package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Method;
import java.nio.ByteBuffer;
import java.util.*;
import org.junit.jupiter.api.Test;
import org.quendel.oxli.messages.*;

class MessageTypesTest extends GatewayTest {
  private static final int REPLY_WANTED = 1;
  private static final int CLEAR_DELETED = 2;
  private static final long HIGH = 1L << 40;

  private final List<String> received = new ArrayList<>();
  private long life;

  @Test
  void plainStream() {
    final Publisher first = publish("stream=s;" + SCHEME + "reply_timeout=1");
    final Publisher second =
        publish("stream=t;scheme=?{messages=alien;message.alien=?{id=4;fields=n:i4}}");
    listen("stream=t", onData(first::post));
    final Listener listener = listen("stream=s", this::receive);
    final Message odd = first.newMessage("odd");
    odd.getData().putInt(0, 9);
    first.post(odd);
    second.post(second.newMessage("alien"));
    final DataMessage quote = first.newMessage("quote");
    quote.setUserId(-5);
    quote.setAddress("über");
    quote.getData().putInt(0, 42);
    first.post(quote, REPLY_WANTED);
    while (received.size() < 5) connection.process(1000);
    assertReceived("OpenMessage 100", "Message 300: 9",
        "DataMessage 110 Address=über RefMessage=null UserId=-5: 42",
        "ParseErrorMessage 190 Error=131073: 131073",
        "ZrMqTimeOutMessage 1001 UserId=-5");

    first.shut();
    second.shut();
    connection.process(0);
    listener.open("");
    connection.process(0);
    connection.shut();
    assertReceived("CloseMessage 101 Reason=1: 1", "OpenMessage 100",
        "CloseMessage 101 Reason=2: 2");
  }

  @Test
  void replicatedStream() {
    final Publisher publisher = publish("stream=s;mode=replica;" + SCHEME);
    final Listener listener = listen("stream=s;mode=replica", this::receive);
    final StreamDataMessage row = publisher.newMessageById(7);
    row.setUserId(-HIGH);
    row.setNull(2, true);
    row.getData().putInt(0, -1);
    connection.process(0);
    publisher.post(row);
    row.setRev(HIGH);
    publisher.post(row, CLEAR_DELETED);
    connection.process(0);
    listener.shut();
    assertReceived("OpenMessage 100",
        "ZrReplLifeNumMessage 1110 Flags=0 Lifenum=" + life + ": " + (int) life,
        "TnBeginMessage 200", "TnCommitMessage 210", "ZrReplOnlineMessage 1112",
        "TnBeginMessage 200",
        "StreamDataMessage 120 Nulls=[false, false, true] Rev=1 UserId=" + -HIGH + ": -1",
        "TnCommitMessage 210", "TnBeginMessage 200",
        "ZrReplClearDeletedMessage 1111 TableIdx=1 TableRev=" + HIGH + ": 1",
        "TnCommitMessage 210",
        "ZrReplStateMessage 1115 ReplState=lifenum=" + life + ";rev=1: 1701210476",
        "CloseMessage 101 Reason=0: 0");
  }

  @Test
  void clock() {
    final List<Long> times = new ArrayList<>();
    listen("time=1", (conn, lsn, message) -> {
      if (message.getType() == MessageType.TIME) times.add(((TimeMessage) message).getTime());
      return 0;
    });
    while (times.isEmpty()) connection.process(1000);
    assertEquals(System.currentTimeMillis() / 1e3, times.get(0) / 1e6, 60, "seconds");
  }

  /** Notes the class, the type, what every getter of a class's own gives, and the first field. */
  private int receive(Connection conn, Listener lsn, Message message) {
    final StringBuilder text = new StringBuilder(message.getClass().getSimpleName())
        .append(' ').append(Integer.toHexString(message.getType()));
    final Method[] methods = message.getClass().getDeclaredMethods();
    Arrays.sort(methods, Comparator.comparing(Method::getName));
    for (Method getter : methods) {
      if (message.getClass() == Message.class || !getter.getName().startsWith("get")) continue;
      final Object value = assertDoesNotThrow(() -> getter.invoke(message));
      text.append(' ').append(getter.getName().substring(3)).append('=').append(
          value instanceof boolean[] ? Arrays.toString((boolean[]) value) : value);
    }
    if (message.getType() == MessageType.ZRREPL_LIFENUM) {
      life = ((ZrReplLifeNumMessage) message).getLifenum();
    }
    final ByteBuffer data = message.getData();
    if (data == null) assertThrows(IllegalStateException.class, () -> message.getText(0, 0));
    received.add(text + (data == null ? "" : ": " + data.getInt(0)));
    return 0;
  }

  private void assertReceived(String... expected) {
    assertEquals(String.join("\n", expected), String.join("\n", received));
    received.clear();
  }
}
