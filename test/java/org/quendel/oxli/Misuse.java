package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.platform.commons.support.ReflectionSupport.invokeMethod;

import java.lang.reflect.*;
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
final class Misuse extends GatewayTest {
  private static final String KINDS = "scheme=?{messages=odd,quote,empty,a,b;"
      + "message.odd=?{fields=n:i4,z:z;code=768};message.quote=?{id=7;fields=n:i4,z:z,m:i8};"
      + "message.empty=?{noindex=1;id=1;fields=n:i4,w:i8,x:i8,y:i8};"
      + "message.a=?{noindex=1;id=5;fields=n:i4,z:z};"
      + "message.b=?{noindex=1;id=5;fields=n:i4,x:i8,y:i8}}";
  private static final int AFTER_N = 4;

  private static Runnable insidePost; // runs during the next post only
  private static boolean printsReleases;

  private final Path elsewhere;
  private Publisher publisher;

  private Misuse(Path elsewhere) {
    this.elsewhere = elsewhere;
  }

  /**
   * Runs the program that the first argument names, and prints its exception. The second argument
   * is a directory with a copy of the native library.
   */
  public static void main(String[] args) throws Exception {
    final Misuse misuse = new Misuse(Path.of(args[1]));
    misuse.openEnvironment();
    misuse.publisher = misuse.connection.newPublisher("");
    misuse.publisher.open(KINDS);
    final Method program = Misuse.class.getDeclaredMethod(args[0]);
    System.out.println(assertThrows(Throwable.class, () -> invokeMethod(program, misuse)));
    misuse.closeEnvironment();
  }

  void postForeignAddressInMessageOfOwnTypeCode() {
    postForeignAddress(publisher, "odd");
  }

  void overwriteDeliveredAddress() {
    listen(Misuse::writeForeignAddress);
    publisher.post(publisher.newMessage("quote"));
    connection.process(0);
  }

  void useDeliveredMessageOnOtherThread() throws Throwable {
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
      last = assertThrows(ExecutionException.class, result::get).getCause();
    }
    throw last;
  }

  void readBlockOfOtherKindWithSameId() {
    readBlocks("a", "b");
  }

  void readBlockOfOtherKindWhoseIdIsTheIndex() {
    readBlocks("quote", "empty");
  }

  /** The first message has a z-block. The second one has other bytes at the same offset. */
  private void readBlocks(String first, String second) {
    final ZBlock block = environment.newZBlock();
    listen(message -> {
      message.getDesc().getField("z").getZBlock(message, block);
      System.out.println(block.getData().capacity() == 0 ? "empty" : block.getData().get(0));
    });
    publisher.post(publisher.newMessage(first));
    postForeignAddress(publisher, second);
    connection.process(0);
  }

  /** The preloaded library makes a list of hints in this scheme circular. */
  void postForeignAddressWithEndlessScheme() {
    final Publisher endless = connection.newPublisher("stream=endless");
    endless.open("scheme=?{messages=endless;message.endless=?{fields=n:i4,z:z}}");
    postForeignAddress(endless, "endless");
  }

  void openWithSecondClassLoader() throws Exception {
    try (URLClassLoader loader = loader()) {
      System.out.println(assertThrows(Exception.class, () -> open(loader)));
      System.out.println("first one: state " + State.nameOf(connection.getState()));
      environment.close();
      final AutoCloseable second = open(loader);
      try {
        Environment.open("");
      } finally {
        second.close();
      }
    }
  }

  /**
   * The exit handler must not keep its class loader reachable. Another class loader can load the
   * same file only after the first one has been collected.
   */
  void reloadAfterExitHandler() throws Exception {
    environment.close();
    openAndClose();
    for (int tries = 0; tries < 500; ++tries) {
      System.gc();
      Thread.sleep(10);
      try {
        openAndClose();
        throw new NoSuchElementException("the first class loader was collected");
      } catch (UnsatisfiedLinkError e) {
        // The first class loader has not been collected yet.
      }
    }
  }

  private void openAndClose() throws Exception {
    try (URLClassLoader loader = loader(); AutoCloseable opened = open(loader)) {
      final Class<?> type = loader.loadClass(IExitEventHandler.class.getName());
      final Object handler =
          Proxy.newProxyInstance(loader, new Class<?>[] {type}, (proxy, method, arguments) -> null);
      opened.getClass().getMethod("onExit", type).invoke(opened, handler);
    }
  }

  private URLClassLoader loader() throws Exception {
    System.setProperty("oxli.library.path", elsewhere.toString());
    return new URLClassLoader(
        new URL[] {ChildVm.JAR.toUri().toURL()}, ClassLoader.getPlatformClassLoader());
  }

  private static AutoCloseable open(ClassLoader loader) throws Exception {
    final Class<?> type = loader.loadClass(Environment.class.getName());
    return (AutoCloseable) invokeMethod(type.getMethod("open", String.class), null, "");
  }

  /** The preloaded library calls {@link #insidePost} and {@link #released}. */
  void closeMessageInsideItsPost() {
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

  void closePublisherInsideItsPost() {
    final DataMessage message = publisher.newMessage("quote");
    printsReleases = true;
    insidePost = () -> {
      System.out.println(environment.dump().contains("\" is inside a call\n"));
      publisher.close();
      System.out.println(assertThrows(IllegalStateException.class, connection::close));
      System.out.println(assertThrows(IllegalStateException.class, environment::close));
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

  private static void postForeignAddress(Publisher publisher, String name) {
    final Message message = publisher.newMessage(name);
    writeForeignAddress(message);
    publisher.post(message);
  }

  private static void writeForeignAddress(Message message) {
    message.getData().putInt(AFTER_N, 100).putLong(AFTER_N + Integer.BYTES, 0x12345000);
  }

  private void listen(Consumer<AbstractDataMessage> consumer) {
    listen("", onData(consumer));
  }
}
