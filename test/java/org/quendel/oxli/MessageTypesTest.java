package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Method;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Set;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;
import org.quendel.oxli.messages.*;

class MessageTypesTest extends GatewayTest {
  private static final int REPLY_WANTED = 1;
  private static final int CLEAR_DELETED = 2;
  private static final long HIGH = 1L << 40;

  /** What does not tell one message from another. */
  private static final Set<String> OTHERS =
      Set.of("getClass", "getCreateType", "getData", "getRef", "getScheme", "getType");

  private final List<String> received = new ArrayList<>();
  private String state;

  @Test
  void plainStream() {
    final Publisher first = publish("stream=s;" + SCHEME + "reply_timeout=1");
    final Publisher second =
        publish("stream=s;scheme=?{messages=alien;message.alien=?{id=4;fields=n:i4}}");
    final Listener listener = listen("stream=s", this::receive);
    final DataMessage quote = first.newMessage("quote");
    quote.setUserId(-5);
    quote.setAddress("über");
    quote.getData().putLong(VOLUME, 42);
    first.post(quote);
    second.post(second.newMessage("alien"));
    final Message odd = first.newMessage("odd");
    odd.getData().putInt(0, 9);
    first.post(odd);
    connection.process(0);
    final String quoteText = "DataMessage 110 Address=über MsgId=7 MsgIndex=1 MsgName=quote"
        + " RefMessage=null UserId=";
    assertReceived("OpenMessage 100",
        quoteText + "-5: 42",
        "ParseErrorMessage 190 Address= Error=131073 MsgId=-1 MsgIndex=-1 MsgName=alien"
            + " RefMessage=null UserId=0",
        "Message 300: 9");

    quote.setUserId(6);
    first.post(quote, REPLY_WANTED);
    while (received.size() < 2) connection.process(1000);
    assertReceived(quoteText + "6: 42",
        "ZrMqTimeOutMessage 1001 UserId=6");

    first.shut();
    second.shut();
    connection.process(0);
    assertReceived("CloseMessage 101 Reason=1");
    listener.open("");
    connection.process(0);
    listener.shut();
    assertReceived("OpenMessage 100", "CloseMessage 101 Reason=0");
    listener.open("");
    connection.process(0);
    connection.shut();
    assertReceived("OpenMessage 100", "CloseMessage 101 Reason=2");
  }

  @Test
  void replicatedStream() {
    final Publisher publisher = publish("stream=s;mode=replica;" + SCHEME);
    final Listener listener = listen("stream=s;mode=replica", this::receive);
    connection.process(0);
    final String[] start = {"OpenMessage 100", "ZrReplLifeNumMessage 1110 Flags=0 Lifenum=1",
        "TnBeginMessage 200", "TnCommitMessage 210", "ZrReplOnlineMessage 1112"};
    assertReceived(start);

    final StreamDataMessage row = publisher.newMessageById(7);
    row.setUserId(-HIGH);
    row.setNull(2, true);
    row.getData().putLong(VOLUME, -1);
    publisher.post(row);
    row.setRev(HIGH);
    publisher.post(row, CLEAR_DELETED);
    connection.process(0);
    assertReceived("TnBeginMessage 200",
        "StreamDataMessage 120 MsgId=7 MsgIndex=1 MsgName=quote Nulls=[false, false, true]"
            + " Rev=1 UserId=" + -HIGH + ": -1",
        "TnCommitMessage 210", "TnBeginMessage 200",
        "ZrReplClearDeletedMessage 1111 TableIdx=1 TableRev=" + HIGH, "TnCommitMessage 210");

    listener.shut();
    assertReceived("ZrReplStateMessage 1115 ReplState=lifenum=1;rev=1",
        "CloseMessage 101 Reason=0");
    listener.open("replstate=\"" + state + '"');
    connection.process(0);
    assertReceived(start);
  }

  @Test
  void clock() {
    final List<Long> times = new ArrayList<>();
    listen("time=1", (conn, lsn, message) -> {
      if (message.getType() == MessageType.TIME) times.add(((TimeMessage) message).getTime());
      return 0;
    });
    final long before = System.currentTimeMillis() * 1000;
    while (times.isEmpty()) connection.process(1000);
    final long after = System.currentTimeMillis() * 1000 + 999;
    assertTrue(before <= times.get(0) && times.get(0) <= after, times::toString);
  }

  /** Notes the class, the type, what every getter of the class gives, and a field. */
  private int receive(Connection conn, Listener lsn, Message message) {
    final ByteBuffer data = message.getData();
    received.add(message.getClass().getSimpleName() + ' ' + Integer.toHexString(message.getType())
        + Arrays.stream(message.getClass().getMethods())
            .filter(getter -> getter.getName().startsWith("get"))
            .filter(getter -> getter.getParameterCount() == 0)
            .filter(getter -> !OTHERS.contains(getter.getName()))
            .sorted(Comparator.comparing(Method::getName))
            .map(getter -> described(getter, message)).collect(Collectors.joining())
        + (data != null && data.capacity() == QUOTE_SIZE ? ": " + data.getLong(VOLUME) : "")
        + (message.getClass() == Message.class ? ": " + data.getInt(0) : ""));
    if (message instanceof ZrReplStateMessage) {
      state = ((ZrReplStateMessage) message).getReplState();
    }
    return 0;
  }

  private static String described(Method getter, Message message) {
    try {
      final Object value = getter.invoke(message);
      return ' ' + getter.getName().substring(3) + '='
          + (value instanceof boolean[] ? Arrays.toString((boolean[]) value) : value);
    } catch (ReflectiveOperationException e) {
      throw new AssertionError(e);
    }
  }

  private void assertReceived(String... expected) {
    assertEquals(String.join("\n", expected), String.join("\n", received));
    received.clear();
  }
}
