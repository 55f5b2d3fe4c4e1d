import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.messages.DataMessage;

public final class First {
  public static void main(String[] args) {
    final String scheme = "scheme=?{messages=note;message.note=?{fields=text:c16}}";
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("")) {
      connection.open("");
      connection.newListener("stream=notes", (from, to, message) -> {
        if (message instanceof DataMessage) {
          final DataMessage note = (DataMessage) message;
          System.out.println(note.getDesc().getField("text").getText(note));
        }
        return 0;
      }).open("");
      final Publisher publisher = connection.newPublisher("stream=notes;" + scheme);
      publisher.open("");
      final DataMessage note = publisher.newMessage("note");
      note.getDesc().getField("text").setText(note, "hello");
      publisher.post(note);
      connection.process(1000); // calls the listener above
    }
  }
}
