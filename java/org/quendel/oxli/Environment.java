package org.quendel.oxli;

import java.lang.ref.WeakReference;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.function.Supplier;
import org.quendel.oxli.impl.NativeLibrary;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.impl.Version;

/**
 * The gateway's environment: at most one is open in a process. Owns the connections and z-blocks
 * made from it. Thread-safe.
 *
 * <p>An application that closes the environment in a shutdown hook ({@link
 * Runtime#addShutdownHook}) first makes its own threads leave {@link Connection#process}, for
 * example with {@link Connection#wakeup}, and waits for them: the virtual machine does not stop
 * them, and {@link #close} waits for the calls in progress.
 *
 * <p>Two class loaders of one process cannot load the same file of the native library. With a copy
 * of the file for each they share one gateway library. While one has the environment open, {@link
 * #open} of the other is refused and changes nothing; after the close it opens the environment with
 * its own settings, and finds none of the first one's objects, streams or exit handler.
 */
public final class Environment implements AutoCloseable {
  /**
   * The system property that is set while an environment is open: all class loaders of the virtual
   * machine share it.
   */
  private static final String CLAIM = "org.quendel.oxli.environment";

  private static final int MAX_LOG_LINES = 20;
  private static final int MAX_LOG_MILLIS = 1000;

  /** Locked while the environment opens or closes, and by what needs it to stay open meanwhile. */
  private static final Object LIFECYCLE = new Object();

  private static volatile boolean isOpen; // written inside LIFECYCLE

  /**
   * Every connection in a native or about to enter one: a closed one remains until its outermost
   * call has returned.
   */
  private final Set<Connection> connections = ConcurrentHashMap.newKeySet();

  /** Every z-block that is not closed. */
  private final Set<ZBlock> zblocks = ConcurrentHashMap.newKeySet();

  private final String settings;
  private final Origin origin = new Origin();
  private final Thread endHook;
  private volatile boolean closing; // written inside this, which is not locked during natives
  private final AtomicBoolean ended = new AtomicBoolean();
  private final CompletableFuture<Void> closed = new CompletableFuture<>();

  private Environment(String settings) {
    this.settings = settings;
    endHook = newEndHook(new WeakReference<>(this));
  }

  /**
   * Opens the environment. Loads the native library if that has not happened: from the directory of
   * the system property {@code oxli.library.path} if it is set and not empty, and then from nowhere
   * else; otherwise from {@code java.library.path}, then from the directory of {@code oxli.jar}, then
   * from a jar of native libraries on the class path or the module path, which is unpacked into a
   * directory of {@code java.io.tmpdir} that only the user can enter.
   *
   * @param settings the gateway's settings
   * @throws OxliException with {@link ResultCode#INVALID_STATE} if one is open in this process,
   *     which stays as it is; or with the gateway's code. An environment that native code has
   *     opened itself is not noticed: the failed attempt closes it.
   * @throws UnsatisfiedLinkError if the native library cannot be loaded; its message says why and
   *     what to do. Later attempts throw the same again.
   */
  public static Environment open(String settings) {
    Objects.requireNonNull(settings, "settings");
    NativeLibrary.load();
    // The second test is enough unless the application has replaced the system properties.
    if (isOpen || System.getProperties().putIfAbsent(CLAIM, "open") != null) {
      throw new OxliException("Environment.open: OX_ERR_INVALIDSTATE: an environment is open in"
          + " this process (0x20005)", ResultCode.INVALID_STATE);
    }
    try {
      final Environment environment = new Environment(settings);
      synchronized (LIFECYCLE) {
        final int code = OxliImpl.env_open(settings);
        if (code != ResultCode.OK) {
          final OxliException failure =
              Results.failure("Environment.open", Results.nameOf("environment", settings), code);
          OxliImpl.env_close(); // what a failed attempt leaves would refuse the next one
          throw failure;
        }
        isOpen = true;
      }
      environment.addEndHook();
      return environment;
    } finally {
      if (!isOpen) System.getProperties().remove(CLAIM);
    }
  }

  /**
   * Makes a connection, closed at first.
   *
   * @param settings the gateway's settings
   * @throws OxliException if the gateway refuses
   */
  public Connection newConnection(String settings) {
    Objects.requireNonNull(settings, "settings");
    final Connection connection = new Connection(this, settings);
    connection.create();
    return connection;
  }

  /** Makes a z-block to receive blocks with. */
  public ZBlock newZBlock() {
    final ZBlock zblock = new ZBlock(this);
    zblock.create(null);
    return zblock;
  }

  /**
   * Makes a z-block to send.
   *
   * @param memory a direct buffer: the bytes from its position to its limit; later changes of its
   *     position and limit do not matter. The z-block keeps the buffer's memory alive, which has an
   *     effect only on the application's own memory: not on payloads and received blocks, whose
   *     memory the gateway frees.
   * @throws IllegalArgumentException if the buffer is not direct
   */
  public ZBlock newZBlock(ByteBuffer memory) {
    final ByteBuffer slice = ZBlock.memoryOf(memory);
    final ZBlock zblock = new ZBlock(this);
    zblock.create(slice);
    return zblock;
  }

  /**
   * Sets who receives the gateway's exit event until the next call or the close.
   *
   * @param handler null for nobody
   * @throws OxliException if the gateway refuses
   */
  public void onExit(IExitEventHandler handler) {
    requireOpen();
    synchronized (LIFECYCLE) {
      requireOpen();
      ExitEvents.setHandler(handler);
    }
  }

  /**
   * Closes all connections and z-blocks, waiting for the calls in progress on them, and then the
   * environment. Connections, outgoing messages and z-blocks that the application has not closed
   * before are named in the gateway's log at level info, as they are when the virtual machine ends
   * before the close; objects that the close of their connection closes are not named. When it returns another can be opened; a thread inside {@link
   * IExitEventHandler#onExitEvent} does not wait for another one that closes.
   *
   * @throws IllegalStateException if the calling thread is inside {@code onMessage} or inside a
   *     post; nothing is closed then
   * @throws OxliException the first error reported, with others suppressed; all is closed
   */
  @Override
  public void close() {
    for (Connection connection : connections) {
      if (connection.isEnteredByCaller()) {
        throw new IllegalStateException(this + " cannot be closed inside onMessage or a post");
      }
    }
    final boolean isFirst;
    synchronized (this) {
      isFirst = !closing;
      closing = true;
    }
    final CloseErrors errors = new CloseErrors();
    if (isFirst) errors.run(() -> log("Environment.close closes ", unclosed()));
    for (Connection connection : connections) errors.run(connection::close);
    for (ZBlock zblock : zblocks) errors.run(zblock::close);
    if (ended.compareAndSet(false, true)) {
      end(errors);
    } else if (!ExitEvents.isCaller()) { // for which the gateway may wait while it closes
      closed.join();
    }
    errors.throwFirst();
  }

  private void end(CloseErrors errors) {
    synchronized (LIFECYCLE) {
      isOpen = false;
      errors.run(() -> Results.check("Environment.close", this, OxliImpl.env_close()));
      // After that, because the gateway may raise the event while it closes.
      errors.run(ExitEvents::unregister);
      System.getProperties().remove(CLAIM);
      errors.run(this::removeEndHook);
    }
    closed.complete(null);
  }

  private void addEndHook() {
    try {
      Runtime.getRuntime().addShutdownHook(endHook);
    } catch (IllegalStateException e) {
      // The virtual machine ends already.
    }
  }

  private void removeEndHook() {
    try {
      Runtime.getRuntime().removeShutdownHook(endHook);
    } catch (IllegalStateException e) {
      // The virtual machine ends already: the hook finds the environment closed.
    }
  }

  /** The hook keeps alive neither the environment nor what belongs to the thread that opens it. */
  private static Thread newEndHook(WeakReference<Environment> reference) {
    final Thread hook = new Thread(null, () -> {
      final Environment environment = reference.get();
      if (environment == null || environment.closing) return;
      final Thread writer = new Thread(() -> {
        final List<String> lines = environment.unclosed();
        lines.add(0, environment + ": " + environment.origin.age() + environment.origin.place());
        log("the virtual machine ends before the close of ", lines);
      }, "oxli-end-log");
      writer.setDaemon(true);
      writer.start();
      try {
        writer.join(MAX_LOG_MILLIS); // the log may be a pipe that nobody reads
      } catch (InterruptedException e) {
        // The virtual machine ends without the rest of the lines.
      }
    }, "oxli-end", 0, false);
    hook.setContextClassLoader(null);
    return hook;
  }

  /** Returns a line for each connection that is not closed, and for groups of the other objects. */
  private List<String> unclosed() {
    final List<String> lines = new ArrayList<>();
    for (Connection each : Origin.inOrder(connections, Connection::origin)) each.addUnclosed(lines);
    for (Dump.Group group : zblockGroups()) lines.add(group + group.oldest.place());
    return lines;
  }

  private static void log(String prefix, List<String> lines) {
    for (int i = 0; i < lines.size(); ++i) {
      final boolean isLast = i == MAX_LOG_LINES;
      final String line = isLast ? lines.size() - i + " more" : lines.get(i);
      OxliImpl.log_infostr(prefix + line);
      if (isLast) return;
    }
  }

  private List<Dump.Group> zblockGroups() {
    final Dump.Groups groups = new Dump.Groups();
    for (ZBlock each : zblocks) each.dump(groups);
    return groups.inOrder();
  }

  /**
   * Returns what is alive, for people: a line for each connection, listener and publisher, and one
   * for each kind of outgoing messages and z-blocks. The format may change.
   *
   * <p>Connections, listeners and publishers have the beginning of their settings without
   * passwords, their age, the number of messages delivered or posted, and the state when it was
   * last seen: when the object was made, opened or shut, when {@code getState} returned, when a
   * call on a connection failed, and when an {@link org.quendel.oxli.messages.OpenMessage} or
   * {@link org.quendel.oxli.messages.CloseMessage} was delivered. The gateway is not asked. A
   * thread that is inside a call is shown with its stack trace.
   *
   * <p>With {@code -Doxli.dump.origins=true} each object also has the stack trace of where it was
   * made, and objects made at different places are of different kinds. The property is read once,
   * when the first environment is opened. Making an object takes some microseconds more then.
   *
   * <p>Always possible: inside {@code onMessage}, in an exit event handler, while another thread
   * closes the environment, and after that. Waits for no other thread; what other threads do
   * meanwhile may be missing.
   */
  public String dump() {
    final Dump dump = new Dump();
    final String status = closed.isDone() ? "closed" : closing ? "closing" : "open";
    dump.add(this + ": " + status + ", " + origin.age(), origin, () -> {
      GatewayLock.dump(dump);
      for (Connection each : Origin.inOrder(connections, Connection::origin)) each.dump(dump);
      dump.add(zblockGroups());
    });
    return dump.toString();
  }

  /** Returns the beginning of the settings. */
  @Override
  public String toString() {
    return Results.nameOf("environment", settings);
  }

  /** Called inside the connection's delivery lock, before its native object is made. */
  void register(Connection connection) {
    synchronized (this) {
      requireOpen();
      connections.add(connection);
    }
  }

  /** Called when the connection is closed and its outermost call returns. */
  void forget(Connection connection) {
    connections.remove(connection);
  }

  /** Called inside the z-block's lock, before its native object is made. */
  void register(ZBlock zblock) {
    synchronized (this) {
      requireOpen();
      zblocks.add(zblock);
    }
  }

  /** Called when the z-block is closed. */
  void forget(ZBlock zblock) {
    zblocks.remove(zblock);
  }

  /**
   * Runs what needs some environment to be open and uses none of its objects; it does not close
   * meanwhile.
   *
   * @throws IllegalStateException if none is open
   */
  static <T> T whileOpen(Supplier<T> call) {
    requireAnyOpen(); // before the lock, which a thread that closes may have locked for long
    synchronized (LIFECYCLE) {
      requireAnyOpen();
      return call.get();
    }
  }

  private static void requireAnyOpen() {
    if (!isOpen) throw new IllegalStateException("no environment is open");
  }

  private synchronized void requireOpen() {
    if (closing) throw new IllegalStateException(this + " is closed");
  }

  /** Returns the version of this library, for example "0.2.0". Needs no open environment. */
  public static String getVersion() {
    return Version.VERSION;
  }

  /**
   * Writes a line to the gateway's log at level debug. Needs no open environment.
   *
   * @throws OxliException if the gateway refuses
   */
  public static void logDebug(String line) {
    Results.check("Environment.logDebug", line, OxliImpl.log_debugstr(checked(line)));
  }

  /** Writes a line to the gateway's log at level trace; see {@link #logDebug}. */
  public static void logTrace(String line) {
    Results.check("Environment.logTrace", line, OxliImpl.log_tracestr(checked(line)));
  }

  /** Writes a line to the gateway's log at level info; see {@link #logDebug}. */
  public static void logInfo(String line) {
    Results.check("Environment.logInfo", line, OxliImpl.log_infostr(checked(line)));
  }

  /** Writes a line to the gateway's log at level error; see {@link #logDebug}. */
  public static void logError(String line) {
    Results.check("Environment.logError", line, OxliImpl.log_errorstr(checked(line)));
  }

  private static String checked(String line) {
    NativeLibrary.load(); // whose failure is thrown each time; that of a class initialiser is not
    return Objects.requireNonNull(line, "line");
  }
}
