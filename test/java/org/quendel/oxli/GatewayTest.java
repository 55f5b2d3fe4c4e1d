package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.List;
import java.util.function.Consumer;
import java.util.stream.Collectors;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.function.Executable;
import org.quendel.oxli.messages.AbstractDataMessage;
import org.quendel.oxli.messages.Message;

/** Every test has an environment with an open connection. */
abstract class GatewayTest {
  static final String SCHEME = "scheme=?{messages=odd,quote,narrow,wide,rare,empty;"
      + "message.odd=?{fields=n:i4;code=768};"
      + "message.quote=?{id=7;indices=pk;fields=isin:c12,volume:i8,price:d;"
      + "index.pk=?{fields=isin}};"
      + "message.narrow=?{noindex=1;fields=a:i4};"
      + "message.wide=?{noindex=1;fields=a:i4,b:i4,c:i4};"
      + "message.rare=?{noindex=1;id=1;fields=a:i4,b:i4,c:i4,d:i4};"
      + "message.empty=?{noindex=1;id=1}};";
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

  /** Takes data messages and rows only. */
  static ISubscriber onData(Consumer<AbstractDataMessage> consumer) {
    return (connection, listener, message) -> {
      if (message instanceof AbstractDataMessage) consumer.accept((AbstractDataMessage) message);
      return 0;
    };
  }

  static OxliException assertRefused(int code, String operation, Executable call) {
    final OxliException refused = assertThrows(OxliException.class, call);
    assertEquals(code, refused.getCode());
    assertEquals(ResultCode.nameOf(code), refused.getName());
    final String start = operation + ": " + ResultCode.nameOf(code) + ": ";
    final String end = " (0x" + Integer.toHexString(code) + ')';
    final String text = refused.getMessage();
    assertTrue(text.startsWith(start) && text.endsWith(end), text);
    assertTrue(text.length() > start.length() + end.length(), text);
    return refused;
  }

  static void assertEnded(Message message) {
    assertUnusable(message, Message.class, "getType", "getCreateType", "close");
  }

  /** Calls every public method that the class declares, of which some are harmless. */
  static <T> void assertUnusable(T object, Class<T> declaring, String... harmless) {
    final List<Method> methods = Arrays.stream(declaring.getDeclaredMethods())
        .filter(method -> Modifier.isPublic(method.getModifiers()))
        .filter(method -> !Modifier.isStatic(method.getModifiers()))
        .filter(method -> !Arrays.asList(harmless).contains(method.getName()))
        .collect(Collectors.toList());
    assertFalse(methods.isEmpty());
    for (Method method : methods) {
      final Object[] arguments = Arrays.stream(method.getParameterTypes())
          .map(GatewayTest::argument).toArray();
      final Throwable thrown = assertThrows(InvocationTargetException.class,
          () -> method.invoke(object, arguments), method.toString()).getCause();
      assertEquals(IllegalStateException.class, thrown.getClass(), method.toString());
    }
  }

  private static Object argument(Class<?> type) {
    if (type == int.class) return 0;
    if (type == String.class) return "";
    if (type == ISubscriber.class) return (ISubscriber) (connection, listener, message) -> 0;
    return null;
  }
}
