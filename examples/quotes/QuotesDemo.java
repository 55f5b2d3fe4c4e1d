import java.nio.file.Paths;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;
import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.Listener;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.messages.AbstractDataMessage;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.OpenMessage;
import org.quendel.oxli.messages.ZrReplOnlineMessage;

/**
 * Publishes a file of quotes on a stream, receives them, and prints the last quote of each
 * instrument. With the address of a server, one program may publish and another one receive.
 */
public final class QuotesDemo {
  private static final long MAX_SILENCE = TimeUnit.SECONDS.toNanos(60);

  private final List<Quote> quotes;
  private final Map<String, Quote> last = new TreeMap<>();
  private final String stream;
  private final boolean replica;
  private boolean ready; // what is published from now on is received
  private QuoteFields fields; // of the listener's scheme; null before the first quote
  private int received;

  private QuotesDemo(List<Quote> quotes, boolean replica) {
    this.quotes = quotes;
    this.replica = replica;
    stream = "stream=quotes" + (replica ? ";mode=replica" : "");
  }

  private void listen(Connection connection) {
    connection.newListener(stream, this::onMessage).open("");
    processUntil(connection, 0);
  }

  /** Returns the time at which it started. */
  private long publish(Connection connection, int rate) throws InterruptedException {
    final Publisher publisher = connection.newPublisher(stream + ';' + QuoteFields.SCHEME);
    publisher.open("");
    final long start = System.nanoTime();
    try (AbstractDataMessage message = publisher.newMessage("quote")) {
      final QuoteFields outgoing = new QuoteFields(message.getDesc());
      for (int i = 0; i < quotes.size(); ++i) {
        outgoing.write(message, quotes.get(i));
        publisher.post(message);
        if (rate > 0) {
          connection.process(0);
          final long elapsedMillis = (System.nanoTime() - start) / 1_000_000;
          Thread.sleep(Math.max(0, (i + 1) * 1000L / rate - elapsedMillis));
        } else if (i % 100 == 0) {
          connection.process(0);
        }
      }
    }
    // When shut returns, the server, if there is one, has acknowledged every quote.
    publisher.shut();
    return start;
  }

  /** Processes until that many quotes are received, or nothing arrives for a minute. */
  private void processUntil(Connection connection, int count) {
    int before = received;
    long deadline = System.nanoTime() + MAX_SILENCE;
    while ((!ready || received < count) && System.nanoTime() < deadline) {
      connection.process(100);
      if (received > before) deadline = System.nanoTime() + MAX_SILENCE;
      before = received;
    }
  }

  private int onMessage(Connection connection, Listener listener, Message message) {
    ready |= replica ? message instanceof ZrReplOnlineMessage : message instanceof OpenMessage;
    // A server may have rows of an earlier run.
    if (ready && message instanceof AbstractDataMessage) {
      if (fields == null) fields = new QuoteFields(((AbstractDataMessage) message).getDesc());
      final Quote quote = fields.read(message);
      if (!quote.sameAs(quotes.get(received))) {
        throw new IllegalStateException("row " + received + " came back as " + quote);
      }
      last.put(quote.instrument, quote);
      ++received;
    }
    return 0;
  }

  private void print(long start) {
    final double seconds = (System.nanoTime() - start) / 1e9;
    System.out.printf("%-12s%10s%10s%10s  %s%n", "instrument", "bid", "ask", "volume", "tick");
    last.values().forEach(System.out::println);
    System.out.printf("%n%d of %d quotes came back, of %d instruments; %.0f messages per second%n",
        received, quotes.size(), last.size(), received / seconds);
  }

  private void run(String server, boolean shows, boolean publishes, int rate)
      throws InterruptedException {
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection(server)) {
      connection.open("");
      if (shows) listen(connection);
      if (!publishes) System.out.println("waiting for quotes");
      if (!shows) System.out.println("publishing");
      final long start = publishes ? publish(connection, rate) : System.nanoTime();
      if (shows) {
        processUntil(connection, quotes.size());
        print(start);
      } else {
        System.out.printf("%d quotes published%n", quotes.size());
      }
    }
    if (shows && received != quotes.size()) System.exit(1);
  }

  private static void printScheme() {
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("")) {
      connection.open("");
      final Publisher publisher = connection.newPublisher(QuoteFields.SCHEME);
      publisher.open("");
      System.out.print(publisher.getScheme());
    }
  }

  public static void main(String[] args) throws Exception {
    final List<String> options = Arrays.asList(args);
    if (options.contains("--scheme")) {
      printScheme();
      return;
    }
    final int rate = options.indexOf("--rate");
    final int server = options.indexOf("--server");
    final QuotesDemo demo =
        new QuotesDemo(Quote.readAll(Paths.get(args[0])), options.contains("--replica"));
    demo.run(server < 0 ? "" : "server=" + args[server + 1], !options.contains("--publish"),
        !options.contains("--show"), rate < 0 ? 0 : Integer.parseInt(args[rate + 1]));
  }
}
