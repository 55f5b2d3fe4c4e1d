import java.nio.ByteBuffer;
import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.Listener;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.ZBlock;
import org.quendel.oxli.messages.DataMessage;
import org.quendel.oxli.messages.Message;

/**
 * Sends a picture of 1 MiB as a z-block of its message. Java code does not copy it: the post reads
 * the sender's buffer, and the receiver adds up the bytes in the gateway's memory.
 */
public final class Picture {
  private static final String SCHEME =
      "scheme=?{messages=picture;message.picture=?{fields=title:c16,pixels:z}}";
  private static final int SIZE = 1 << 20;

  private final ZBlock block;

  private Picture(ZBlock block) {
    this.block = block;
  }

  private int onMessage(Connection connection, Listener listener, Message message) {
    if (message instanceof DataMessage) {
      final DataMessage picture = (DataMessage) message;
      picture.getDesc().getField("pixels").getZBlock(picture, block);
      final ByteBuffer pixels = block.getData(); // valid until this method returns
      System.out.printf("received %s: %d bytes outside a payload of %d bytes, sum %d%n",
          picture.getDesc().getField("title").getText(picture), pixels.capacity(),
          picture.getData().capacity(), sum(pixels));
    }
    return 0;
  }

  private static long sum(ByteBuffer bytes) {
    long sum = 0;
    for (int i = 0; i < bytes.capacity(); ++i) sum += bytes.get(i) & 0xff;
    return sum;
  }

  public static void main(String[] args) {
    final ByteBuffer picture = ByteBuffer.allocateDirect(SIZE);
    for (int i = 0; i < SIZE; ++i) picture.put(i, (byte) (i * 31 >> 5));

    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("");
        ZBlock received = environment.newZBlock()) {
      connection.open("");
      connection.newListener("stream=pictures", new Picture(received)::onMessage).open("");
      final Publisher publisher = connection.newPublisher("stream=pictures;" + SCHEME);
      publisher.open("");
      try (ZBlock sent = environment.newZBlock(picture);
          DataMessage message = publisher.newMessage("picture")) {
        final FieldDesc pixels = message.getDesc().getField("pixels");
        message.getDesc().getField("title").setText(message, "dunes");
        pixels.setZBlock(message, sent);
        System.out.printf("sending  dunes: %d bytes, sum %d%n", SIZE, sum(picture));
        publisher.post(message);
      }
      connection.process(1000);
    }
  }
}
