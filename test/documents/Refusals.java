import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.Publisher;

/**
 * Opens a publisher with the scheme of a document, and makes calls that are refused. Prints the log
 * and the exceptions.
 */
final class Refusals {
  public static void main(String[] args) {
    try (Environment environment = Environment.open("log=stderr");
        Connection connection = environment.newConnection("")) {
      connection.open("queue_limits=1");
      final Publisher publisher = connection.newPublisher(args[0]);
      publisher.open("");
      refused(() -> publisher.getScheme().getMessage("quote").getField("missing"));
      refused(() -> connection.newListener("", (from, to, message) -> 0).open("time=soon"));
      refused(() -> connection.newPublisher(
          "scheme=?{messages=quote;message.quote=?{indexes=pk}}"));
    }
  }

  private static void refused(Runnable call) {
    try {
      call.run();
    } catch (RuntimeException e) {
      System.out.println(e.getMessage());
      return;
    }
    throw new AssertionError("not refused");
  }
}
