import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.ISubscriber;
import org.quendel.oxli.Listener;
import org.quendel.oxli.OxliException;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.ResultCode;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.StreamDataMessage;

/** Posts rows from Java; native code receives them and passes them to a Java subscriber. */
public final class Snapshot {
  private static final String STREAM = "stream=prices;mode=replica";
  private static final String SCHEME = "scheme=?{messages=price;"
      + "message.price=?{fields=name:c8,cents:i8;indices=pk;index.pk=?{fields=name}}}";

  private Snapshot() {}

  /** Receives a snapshot and passes its messages to the subscriber. Returns a result code. */
  private static native int receive(String settings, ISubscriber subscriber, int timeoutMillis);

  private static int print(Connection connection, Listener listener, Message message) {
    if (message instanceof StreamDataMessage) {
      final StreamDataMessage row = (StreamDataMessage) message;
      System.out.println(listener + ": " + row.getDesc().getField("name").getText(row) + ' '
          + row.getDesc().getField("cents").getLong(row));
    }
    return 0;
  }

  private static void post(Publisher publisher, String name, long cents) {
    try (StreamDataMessage row = publisher.newMessage("price")) {
      row.getDesc().getField("name").setText(row, name);
      row.getDesc().getField("cents").setLong(row, cents);
      publisher.post(row);
    }
  }

  public static void main(String[] args) {
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("")) {
      System.loadLibrary("snapshot"); // after Environment.open, which loads liboxli_jni.so
      connection.open("");
      final Publisher publisher = connection.newPublisher(STREAM + ';' + SCHEME);
      publisher.open("");
      post(publisher, "apples", 250);
      post(publisher, "pears", 310);
      final int code = receive(STREAM, Snapshot::print, 1000);
      if (code != ResultCode.OK) throw new OxliException("Snapshot.receive", code);
    }
  }
}
