package org.quendel.oxli;

import java.io.IOException;
import java.lang.reflect.Proxy;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.*;
import java.util.*;
import java.util.concurrent.*;
import java.util.function.Consumer;
import org.quendel.oxli.messages.*;

/**
 * Programs that misuse the public API and must end with an exception. {@link MisuseTest} runs each
 * of them in a virtual machine of its own, because a fault may crash it.
 */
final class Misuse {
  private static final String SCHEME = "scheme=?{messages=odd,quote,empty,a,b;"
      + "message.odd=?{fields=n:i4,z:z;code=768};message.quote=?{id=7;fields=n:i4,z:z,m:i8};"
      + "message.empty=?{noindex=1;id=1;fields=n:i4,w:i8,x:i8,y:i8};"
      + "message.a=?{noindex=1;id=5;fields=n:i4,z:z};"
      + "message.b=?{noindex=1;id=5;fields=n:i4,x:i8,y:i8}}";
  private static final int AFTER_N = 4;

  private static Environment environment;
  private static Connection connection;
  private static Publisher publisher;
  private static Runnable insidePost; // runs during the next post only
  private static boolean printsReleases;

  private Misuse() {}

  /** Runs the program that the first argument names, and prints its exception. */
  public static void main(String[] args) throws Exception {
    environment = Environment.open("");
    connection = environment.newConnection("");
    connection.open("");
    publisher = connection.newPublisher("");
    publisher.open(SCHEME);
    try {
      Misuse.class.getDeclaredMethod(args[0], String[].class).invoke(null, (Object) args);
    } catch (java.lang.reflect.InvocationTargetException e) {
      System.out.println(e.getCause());
    }
    environment.close();
  }

  static void postForeignAddressInMessageOfOwnTypeCode(String[] args) {
    final Message odd = publisher.newMessage("odd");
    writeForeignAddress(odd);
    publisher.post(odd);
  }

  static void overwriteDeliveredAddress(String[] args) {
    listen(message -> {
      writeForeignAddress(message);
      publisher.post(message);
    });
    publisher.post(publisher.newMessage("quote"));
    connection.process(0);
  }

  static void useDeliveredMessageOnOtherThread(String[] args) throws Throwable {
    final ExecutorService pool = Executors.newSingleThreadExecutor();
    final List<Future<?>> results = new ArrayList<>();
    listen(message -> {
      results.add(pool.submit(() -> ((DataMessage) message).getUserId()));
      results.add(pool.submit(message::dump));
      results.add(pool.submit(() -> publisher.post(message)));
    });
    for (int i = 0; i < 1000; ++i) {
      publisher.post(publisher.newMessage("quote"));
      connection.process(0);
    }
    pool.shutdown();
    Throwable last = null;
    for (Future<?> result : results) {
      try {
        System.out.println("no exception: " + result.get());
      } catch (ExecutionException e) {
        last = e.getCause();
      }
    }
    throw last;
  }

  static void readBlockOfOtherKindWithSameId(String[] args) {
    readBlocks("a", "b");
  }

  static void readBlockOfOtherKindWhoseIdIsTheIndex(String[] args) {
    readBlocks("quote", "empty");
  }

  /** The first message has a z-block. The second one has other bytes at the same offset. */
  private static void readBlocks(String first, String second) {
    final ZBlock block = environment.newZBlock();
    listen(message -> {
      ((AbstractDataMessage) message).getDesc().getField("z").getZBlock(message, block);
      System.out.println(block.getData().capacity() == 0 ? "empty" : block.getData().get(0));
    });
    publisher.post(publisher.newMessage(first));
    final Message other = publisher.newMessage(second);
    writeForeignAddress(other);
    publisher.post(other);
    connection.process(0);
  }

  /** The preloaded library makes the scheme one that cannot be converted. */
  static void postForeignAddressWithEndlessScheme(String[] args) {
    final Publisher endless = connection.newPublisher("stream=endless");
    endless.open("scheme=?{messages=endless;message.endless=?{fields=n:i4,z:z}}");
    final Message message = endless.newMessage("endless");
    writeForeignAddress(message);
    endless.post(message);
  }

  static void throwCheckedExceptionWhileClosing(String[] args) {
    connection.newListener("", (conn, lsn, message) -> {
      if (message instanceof CloseMessage) {
        Misuse.<RuntimeException>throwAny(new IOException("own"));
      }
      return 0;
    }).open("");
    try {
      environment.close();
    } finally {
      environment = Environment.open("");
    }
  }

  /** The arguments are the jar, and a directory with a copy of the native library. */
  static void openWithSecondClassLoader(String[] args) throws Throwable {
    try (URLClassLoader loader = loader(args)) {
      try {
        open(loader);
      } catch (java.lang.reflect.InvocationTargetException e) {
        System.out.println(e.getCause());
      }
      System.out.println("first one: state " + State.nameOf(connection.getState()));
      environment.close();
      final AutoCloseable second = open(loader);
      try {
        environment = Environment.open("");
      } finally {
        second.close();
      }
    }
  }

  /**
   * The exit handler must not keep its class loader reachable. Another class loader can load the
   * same file only after the first one has been collected.
   */
  static void reloadAfterExitHandler(String[] args) throws Exception {
    environment.close();
    openAndClose(args);
    for (int tries = 0;; ++tries) {
      System.gc();
      Thread.sleep(10);
      try {
        openAndClose(args);
        break;
      } catch (java.lang.reflect.InvocationTargetException e) {
        if (tries == 500) throw new IllegalStateException(e.getCause());
      }
    }
    throw new NoSuchElementException("no class loader is left");
  }

  private static void openAndClose(String[] args) throws Exception {
    try (URLClassLoader loader = loader(args); AutoCloseable opened = open(loader)) {
      final Class<?> type = loader.loadClass(IExitEventHandler.class.getName());
      final Object handler =
          Proxy.newProxyInstance(loader, new Class<?>[] {type}, (proxy, method, arguments) -> null);
      opened.getClass().getMethod("onExit", type).invoke(opened, handler);
    }
  }

  private static URLClassLoader loader(String[] args) throws Exception {
    System.setProperty("oxli.library.path", args[2]);
    return new URLClassLoader(new URL[] {Path.of(args[1]).toUri().toURL()},
        ClassLoader.getPlatformClassLoader());
  }

  private static AutoCloseable open(ClassLoader loader) throws Exception {
    return (AutoCloseable) loader.loadClass(Environment.class.getName())
        .getMethod("open", String.class).invoke(null, "");
  }

  /** The preloaded library calls {@link #insidePost} and {@link #released}. */
  static void closeMessageInsideItsPost(String[] args) {
    final List<Integer> received = new ArrayList<>();
    listen(message -> received.add(((DataMessage) message).getUserId()));
    final DataMessage message = publisher.newMessage("quote");
    message.setUserId(1);
    printsReleases = true;
    insidePost = message::close;
    publisher.post(message);
    connection.process(0);
    System.out.println(received);
    publisher.post(message);
  }

  static void closePublisherInsideItsPost(String[] args) {
    final DataMessage message = publisher.newMessage("quote");
    printsReleases = true;
    insidePost = () -> {
      System.out.println(environment.dump().contains("\" is inside a call\n"));
      publisher.close();
      System.out.println(thrownBy(connection::close));
      System.out.println(thrownBy(environment::close));
    };
    publisher.post(message);
    publisher.post(message);
  }

  static void insidePost() {
    final Runnable action = insidePost;
    insidePost = null;
    if (action != null) action.run();
  }

  static void released() {
    if (printsReleases) System.out.println("released");
  }

  private static Exception thrownBy(Runnable call) {
    try {
      call.run();
      return null;
    } catch (IllegalStateException e) {
      return e;
    }
  }

  private static void writeForeignAddress(Message message) {
    message.getData().putInt(AFTER_N, 100).putLong(AFTER_N + Integer.BYTES, 0x12345000);
  }

  private static void listen(Consumer<Message> consumer) {
    connection.newListener("", (conn, lsn, message) -> {
      if (message instanceof DataMessage) consumer.accept(message);
      return 0;
    }).open("");
  }

  @SuppressWarnings("unchecked")
  private static <T extends Throwable> void throwAny(Throwable e) throws T {
    throw (T) e;
  }
}
