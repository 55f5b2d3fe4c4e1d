import java.util.Map;
import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.Listener;
import org.quendel.oxli.PostFlag;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.messages.DataMessage;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.ZrMqTimeOutMessage;

/**
 * Posts requests and replies. A post reaches every listener of its stream, so requests and replies
 * reach both sides, and each side selects its messages by name. A reply and a timeout contain the
 * user id of their request.
 */
public final class Temperatures {
  private static final String STREAM = "stream=temperatures;scheme=?{messages=request,reply;"
      + "message.request=?{fields=city:c16};message.reply=?{fields=degrees:i4}}";

  private final Map<String, Integer> degrees = Map.of("Oslo", -3, "Rome", 14);
  private final Publisher replies;
  private int open; // number of requests without a reply or timeout

  private Temperatures(Publisher replies) {
    this.replies = replies;
  }

  /** Posts replies to the requests for known cities. The other requests time out. */
  private int serve(Connection connection, Listener listener, Message message) {
    if (!(message instanceof DataMessage)) return 0;
    final DataMessage request = (DataMessage) message;
    if (!request.getMsgName().equals("request")) return 0;
    final String city = request.getDesc().getField("city").getText(request);
    if (!degrees.containsKey(city)) return 0;
    try (DataMessage reply = replies.newMessage("reply")) {
      reply.getDesc().getField("degrees").setLong(reply, degrees.get(city));
      reply.setUserId(request.getUserId());
      reply.setRefMessage(request); // makes it the reply: no timeout follows
      replies.post(reply);
    }
    return 0;
  }

  /** Prints the replies and the timeouts. */
  private int receive(Connection connection, Listener listener, Message message) {
    if (message instanceof ZrMqTimeOutMessage) {
      System.out.println(((ZrMqTimeOutMessage) message).getUserId() + ": no reply");
      --open;
    } else if (message instanceof DataMessage) {
      final DataMessage reply = (DataMessage) message;
      if (!reply.getMsgName().equals("reply")) return 0;
      System.out.println(reply.getUserId() + ": "
          + reply.getDesc().getField("degrees").getLong(reply) + " degrees");
      --open;
    }
    return 0;
  }

  private void request(Publisher requests, int number, String city) {
    try (DataMessage request = requests.newMessage("request")) {
      request.getDesc().getField("city").setText(request, city);
      request.setUserId(number);
      requests.post(request, PostFlag.REPLY_WANTED);
      ++open;
    }
  }

  public static void main(String[] args) {
    try (Environment environment = Environment.open("");
        Connection client = environment.newConnection("");
        Connection server = environment.newConnection("")) {
      client.open("");
      server.open("");
      final Publisher replies = server.newPublisher(STREAM);
      replies.open("");
      final Publisher requests = client.newPublisher(STREAM);
      requests.open("reply_timeout=200"); // milliseconds
      final Temperatures temperatures = new Temperatures(replies);
      server.newListener(STREAM, temperatures::serve).open("");
      client.newListener(STREAM, temperatures::receive).open("");

      temperatures.request(requests, 1, "Oslo");
      temperatures.request(requests, 2, "Atlantis");
      temperatures.request(requests, 3, "Rome");
      final long deadline = System.nanoTime() + 5_000_000_000L;
      while (temperatures.open > 0 && System.nanoTime() < deadline) {
        server.process(0);
        client.process(10);
      }
    }
  }
}
