package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.ref.WeakReference;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.*;
import java.util.concurrent.*;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.Test;
import org.quendel.oxli.messages.*;

class ZBlockTest extends GatewayTest {
  private static final String BLOCKS =
      "scheme=?{messages=in,m;message.in=?{fields=x:i8,z:z};message.m=?{fields=n:i4,a:z,b:z,p:m;"
      + "field.p=?{message=in}}};stream=blocks";

  private final List<String> received = new ArrayList<>();

  private static ByteBuffer direct(String string) {
    return ByteBuffer.allocateDirect(string.length()).put(string.getBytes()).clear();
  }

  private static String string(ByteBuffer bytes) {
    return StandardCharsets.UTF_8.decode(bytes.duplicate()).toString();
  }

  private static WeakReference<ByteBuffer> rebind(ZBlock block, String string) {
    final ByteBuffer memory = direct(string);
    block.rebind(memory);
    return new WeakReference<>(memory);
  }

  /** Rebinding or closing the z-block does not change a message that refers to its memory. */
  @Test
  void messageKeepsReferencedMemoryAlive() {
    final ZBlock incoming = environment.newZBlock();
    listen("stream=blocks", onData(message -> {
      for (String name : List.of("a", "b")) {
        message.getDesc().getField(name).getZBlock(message, incoming);
        assertTrue(incoming.getData().isDirect() && incoming.getData().isReadOnly());
        received.add(string(incoming.getData()));
      }
    }));
    final Publisher publisher = publish(BLOCKS);
    final DataMessage message = publisher.newMessage("m");
    final FieldDesc a = message.getDesc().getField("a");
    final FieldDesc b = message.getDesc().getField("b");
    final ByteBuffer memory = direct("-first-").position(1).limit(6);
    final ZBlock block = environment.newZBlock(memory);
    assertEquals("first", string(block.getData()));
    a.setZBlock(message, block);
    publisher.post(message);
    memory.put(1, (byte) 'X');
    b.setZBlock(message, block);
    block.rebind(direct("second"));
    assertEquals("second", string(block.getData()));
    publisher.post(message);
    final WeakReference<ByteBuffer> memoryOfThird = rebind(block, "third");
    a.setZBlock(message, block);
    block.close();
    System.gc();
    assertNotNull(memoryOfThird.get());
    publisher.post(message);
    final Message copy = message.copy();
    message.close();
    for (int tries = 0; tries < 1000 && memoryOfThird.get() != null; ++tries) System.gc();
    assertNull(memoryOfThird.get(), copy::toString);
    connection.process(0);
    assertEquals(List.of("first", "", "Xirst", "Xirst", "third", "Xirst"), received);
  }

  @Test
  void receivedBlockCannotBeUsedAfterItsMessage() {
    final ZBlock incoming = environment.newZBlock();
    final List<DataMessage> copies = new ArrayList<>();
    final Publisher publisher = publish(BLOCKS);
    final DataMessage message = publisher.newMessage("m");
    final FieldDesc a = message.getDesc().getField("a");
    listen("stream=blocks", onData(delivered -> {
      if (copies.isEmpty()) {
        a.getZBlock(delivered, incoming);
        assertThrows(IllegalStateException.class,
            () -> delivered.getDesc().getField("n").setLong(delivered, 1));
        assertThrows(IllegalStateException.class, () -> delivered.setText(0, 1, "x"));
        copies.add(((DataMessage) delivered).copy());
        assertThrows(IllegalStateException.class, () -> a.setZBlock(delivered, incoming));
        assertThrows(IllegalStateException.class, () -> a.setZBlock(message, incoming));
        assertThrows(IllegalStateException.class, () -> incoming.rebind(direct("x")));
      }
      // Both messages are delivered in the same object.
      final boolean isFirst = copies.get(0).getDesc().getField("n").getLong(delivered) == 0;
      if (isFirst) {
        assertEquals("block", string(incoming.getData()));
      } else {
        assertThrows(IllegalStateException.class, incoming::getData);
      }
      received.add(String.valueOf(isFirst));
    }));
    a.setZBlock(message, environment.newZBlock(direct("block")));
    publisher.post(message);
    message.getDesc().getField("n").setLong(message, 1);
    publisher.post(message);
    connection.process(0);
    assertEquals(List.of("true", "false"), received);
    assertThrows(IllegalStateException.class, incoming::getData);
    assertThrows(IllegalStateException.class, () -> a.getZBlock(copies.get(0), incoming));
    incoming.close();
    incoming.close();
    assertUnusable(incoming);
  }

  /**
   * Two threads close them in either order: the environment waits for z-blocks that are closing.
   */
  @Test
  void blocksAndTheirEnvironmentCanBeClosedAtTheSameTime() throws Exception {
    for (int round = 0; round < 500; ++round) {
      final ZBlock block = environment.newZBlock(direct("x"));
      final AtomicBoolean started = new AtomicBoolean();
      final Environment closing = environment;
      final Future<?> closed = CompletableFuture.runAsync(() -> {
        started.set(true);
        block.close();
        closing.close();
      });
      while (!started.get()) Thread.onSpinWait();
      environment.close();
      environment = Environment.open("");
      closed.get();
    }
    connection = environment.newConnection("");
  }

  @Test
  void damagedBlocksAndOtherMemoryAreRefused() {
    final ZBlock block = environment.newZBlock();
    assertNull(block.getData());
    final Publisher publisher = publish(BLOCKS);
    final DataMessage message = publisher.newMessage("m");
    final FieldDesc a = message.getDesc().getField("a");
    assertThrows(IllegalStateException.class, () -> a.setZBlock(message, block));
    final FieldDesc nested = message.getScheme().getMessage("in").getField("z");
    final FieldDesc inner = message.getDesc().getField("p").getField("z");
    assertThrows(IllegalArgumentException.class, () -> nested.setZBlock(message, block));
    assertThrows(IllegalStateException.class, () -> inner.getZBlock(message, block));
    final DataMessage reply = publisher.newMessage("m");
    reply.setRefMessage(message);
    for (FieldDesc overwritten : List.of(a, inner)) {
      overwritten.setZBlock(message, environment.newZBlock(direct("memory")));
      publisher.post(reply);
      message.getData().put(overwritten.getOffset(), (byte) 5);
      assertThrows(IllegalStateException.class, () -> publisher.post(message));
      assertThrows(IllegalStateException.class, () -> publisher.post(reply));
      assertThrows(IllegalStateException.class, message::dump);
      assertThrows(IllegalStateException.class, reply::dump);
      message.getData().putInt(overwritten.getOffset(), 0);
      publisher.post(message);
    }
    final ByteBuffer heap = ByteBuffer.allocate(1);
    assertThrows(IllegalArgumentException.class, () -> environment.newZBlock(heap));
    final ZBlock sent = environment.newZBlock(direct("sent"));
    assertThrows(IllegalArgumentException.class, () -> sent.rebind(heap));
    environment.close();
    for (ZBlock each : List.of(block, sent)) assertUnusable(each);
    sent.close();
  }
}
