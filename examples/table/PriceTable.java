import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.Listener;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.PostFlag;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.StreamDataMessage;
import org.quendel.oxli.messages.ZrReplClearDeletedMessage;
import org.quendel.oxli.messages.ZrReplLifeNumMessage;
import org.quendel.oxli.messages.ZrReplStateMessage;

/**
 * Stores the rows of a replica in a table, saves the table with the state of the replica when the
 * listener is closed, and resumes from the saved file: the second run receives only the changes
 * since the first one.
 */
public final class PriceTable {
  private static final String STREAM = "stream=prices;mode=replica";
  private static final String SCHEME = "scheme=?{messages=price;"
      + "message.price=?{fields=name:c8,cents:i8;indices=pk;index.pk=?{fields=name}}}";

  /** A row with its revision, by which onMessage finds the rows that the gateway has deleted. */
  private static final class Row {
    final long revision;
    final long cents;

    Row(long revision, long cents) {
      this.revision = revision;
      this.cents = cents;
    }
  }

  private final Path file;
  private final Map<String, Row> rows = new TreeMap<>();
  private String state = ""; // the state of the replica after these rows; empty if there is none
  private int changes;

  private PriceTable(Path file) throws IOException {
    this.file = file;
    if (!Files.exists(file)) return;
    final List<String> lines = Files.readAllLines(file);
    state = lines.get(0);
    for (String line : lines.subList(1, lines.size())) {
      final String[] cells = line.split(",");
      rows.put(cells[0], new Row(Long.parseLong(cells[1]), Long.parseLong(cells[2])));
    }
  }

  private void save() throws IOException {
    final List<String> lines = new ArrayList<>(List.of(state));
    rows.forEach((name, row) -> lines.add(name + ',' + row.revision + ',' + row.cents));
    Files.write(file, lines);
  }

  private int onMessage(Connection connection, Listener listener, Message message) {
    if (message instanceof ZrReplLifeNumMessage) {
      // If the saved state has another life number, the saved rows are stale.
      final long life = ((ZrReplLifeNumMessage) message).getLifenum();
      if (!state.contains("lifenum=" + life + ";")) rows.clear();
    } else if (message instanceof StreamDataMessage) {
      final StreamDataMessage row = (StreamDataMessage) message;
      final MessageDesc price = row.getDesc();
      final FieldDesc cents = price.getField("cents");
      rows.put(price.getField("name").getText(row), new Row(row.getRev(), cents.getLong(row)));
      ++changes;
    } else if (message instanceof ZrReplClearDeletedMessage) {
      final long oldest = ((ZrReplClearDeletedMessage) message).getTableRev();
      rows.values().removeIf(row -> row.revision < oldest);
    } else if (message instanceof ZrReplStateMessage) {
      state = ((ZrReplStateMessage) message).getReplState();
    }
    return 0;
  }

  /** Receives the queued messages of the stream, as one run of a consumer does. */
  private static void consume(Connection connection, Path file) throws IOException {
    final PriceTable table = new PriceTable(file);
    try (Listener listener = connection.newListener(STREAM, table::onMessage)) {
      // The state contains a semicolon, so it must be quoted.
      listener.open(table.state.isEmpty() ? "" : "replstate=\"" + table.state + '"');
      connection.process(1000);
    }
    table.save();
    System.out.println(table.changes + " rows received: " + table);
  }

  @Override
  public String toString() {
    final StringBuilder line = new StringBuilder();
    rows.forEach((name, row) -> line.append(String.format("%s %d.%02d, ", name, row.cents / 100,
        row.cents % 100)));
    return line.length() == 0 ? "" : line.substring(0, line.length() - 2);
  }

  private static void post(Publisher publisher, String name, long cents) {
    try (StreamDataMessage row = publisher.newMessage("price")) {
      row.getDesc().getField("name").setText(row, name);
      row.getDesc().getField("cents").setLong(row, cents);
      publisher.post(row);
    }
  }

  /** Deletes the rows that are older than a revision. */
  private static void clear(Publisher publisher, long revision) {
    try (StreamDataMessage row = publisher.newMessage("price")) {
      row.setRev(revision);
      publisher.post(row, PostFlag.CLEAR_DELETED);
    }
  }

  public static void main(String[] args) throws IOException {
    final Path file = args.length > 0 ? Paths.get(args[0]) : Files.createTempFile("prices", ".txt");
    if (args.length == 0) Files.delete(file);
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("")) {
      connection.open("");
      final Publisher publisher = connection.newPublisher(STREAM + ';' + SCHEME);
      publisher.open("");
      post(publisher, "apples", 250);
      post(publisher, "pears", 310);
      post(publisher, "plums", 199);
      consume(connection, file);
      post(publisher, "pears", 299);
      clear(publisher, 3); // deletes apples: the row of revision 1
      consume(connection, file);
    } finally {
      if (args.length == 0) Files.deleteIfExists(file);
    }
  }
}
