package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.*;
import java.nio.ByteBuffer;
import java.util.*;
import java.util.function.Consumer;
import java.util.stream.Stream;
import org.junit.jupiter.api.*;
import org.junit.jupiter.api.function.Executable;
import org.quendel.oxli.messages.*;

/** Opens an environment and a connection for each test, and closes them after it. */
abstract class GatewayTest {
  static final String SCHEME = "scheme=?{messages=odd,quote,narrow,wide,large;"
      + "message.odd=?{id=9;fields=n:i4;code=768};"
      + "message.quote=?{id=7;indices=pk;fields=isin:c12,volume:i8,price:d;"
      + "index.pk=?{fields=isin}};"
      + "message.narrow=?{noindex=1;fields=a:i4};"
      + "message.wide=?{noindex=1;fields=a:i4,b:i4,c:i4};"
      + "message.large=?{noindex=1;id=1;fields=a:i4,b:i4,c:i4,d:i4}};";
  private static final Map<Class<?>, Object> ARGUMENTS = Map.of(int.class, 0, long.class, 0L,
      boolean.class, true, String.class, "", ByteBuffer.class, ByteBuffer.allocateDirect(1),
      ISubscriber.class, onData(message -> {}));
  static final int ISIN = 0;
  static final int VOLUME = 12;
  static final int PRICE = 20;
  static final int QUOTE_SIZE = 29;

  Environment environment;
  Connection connection;

  @BeforeEach
  void openEnvironment() {
    environment = Environment.open("");
    connection = environment.newConnection("");
    connection.open("");
  }

  @AfterEach
  void closeEnvironment() {
    environment.close();
  }

  final Listener listen(String settings, ISubscriber subscriber) {
    final Listener listener = connection.newListener(settings, subscriber);
    listener.open("");
    return listener;
  }

  final Publisher publish(String settings) {
    final Publisher publisher = connection.newPublisher(settings);
    publisher.open("");
    return publisher;
  }

  /** Posts a quote for each volume. */
  static void post(Publisher publisher, long... volumes) {
    try (DataMessage message = publisher.newMessage("quote")) {
      for (long volume : volumes) {
        message.getData().putLong(VOLUME, volume);
        publisher.post(message);
      }
    }
  }

  /** Returns a subscriber that passes data messages and rows to the consumer and ignores others. */
  static ISubscriber onData(Consumer<AbstractDataMessage> consumer) {
    return (connection, listener, message) -> {
      if (message instanceof AbstractDataMessage) consumer.accept((AbstractDataMessage) message);
      return 0;
    };
  }

  static OxliException assertRefused(int code, String operation, Executable call) {
    final OxliException refused = assertThrows(OxliException.class, call);
    assertEquals(code, refused.getCode());
    assertTrue(refused.getMessage().startsWith(operation), refused::getMessage);
    return refused;
  }

  /** Starts a thread and waits until the method is the innermost one of its stack. */
  static void startAndAwait(String method, Runnable task) {
    final Thread thread = new Thread(task);
    thread.start();
    while (thread.isAlive() && !isIn(thread, method)) Thread.onSpinWait();
    assertTrue(thread.isAlive(), method);
  }

  static boolean isIn(Thread thread, String method) {
    final StackTraceElement[] frames = thread.getStackTrace();
    return frames.length > 0 && frames[0].getMethodName().equals(method);
  }

  /** Expects that every public method that uses the gateway throws IllegalStateException. */
  static void assertUnusable(AutoCloseable object) {
    final List<String> harmless = object instanceof Message
        ? List.of("close", "toString", "getType", "getScheme")
        : List.of("close", "toString", "dump");
    for (Method method : object.getClass().getMethods()) {
      final String declaring = method.getDeclaringClass().getPackageName();
      if (!declaring.matches("org.quendel.oxli(.messages)?")) continue;
      if (Modifier.isStatic(method.getModifiers()) || harmless.contains(method.getName())) continue;
      final Object[] arguments =
          Stream.of(method.getParameterTypes()).map(ARGUMENTS::get).toArray();
      final Throwable thrown = assertThrows(InvocationTargetException.class,
          () -> method.invoke(object, arguments), method.toString()).getCause();
      assertEquals(IllegalStateException.class, thrown.getClass(), method.toString());
    }
    assertNotNull(object.toString());
  }
}
