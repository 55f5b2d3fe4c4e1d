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
 * <p>A shutdown hook ({@link Runtime#addShutdownHook}) that closes the environment must first make
 * the application's threads return from {@link Connection#process}, for example with {@link
 * Connection#wakeup}, and wait for them: the virtual machine does not stop them, and {@link #close}
 * waits for the calls in progress.
 *
 * <p>Two class loaders of one process cannot load the same file of the native library. If each
 * loads its own copy of the file, they share one gateway library. While an environment is open that
 * was opened through one class loader, {@link #open} called through the other one throws and
 * changes nothing. After the close, {@link #open} succeeds there, with its own settings, and
 * without the objects, streams and exit handler of the first environment.
 */
public final class Environment implements AutoCloseable {
  /**
   * The system property that is set while an environment is open. All class loaders of the virtual
   * machine share it.
   */
  private static final String CLAIM = "org.quendel.oxli.environment";

  private static final int MAX_LOG_LINES = 20;
  private static final int MAX_LOG_MILLIS = 1000;

  /**
   * Locked while an environment is opened or closed, and by calls during which the environment must
   * stay open.
   */
  private static final Object LIFECYCLE = new Object();

  private static volatile boolean isOpen; // written inside LIFECYCLE

  /**
   * The connections that are not closed, and the closed ones whose outermost call has not returned.
   */
  private final Set<Connection> connections = ConcurrentHashMap.newKeySet();

  /** The z-blocks that are not released. */
  private final Set<ZBlock> zblocks = ConcurrentHashMap.newKeySet();

  private final String settings;
  private final Origin origin = new Origin();
  private final Thread shutdownHook;
  // Written while `this` is locked; no native is called while `this` is locked.
  private volatile boolean closing;
  private final AtomicBoolean nativeCloseStarted = new AtomicBoolean();
  private final CompletableFuture<Void> closed = new CompletableFuture<>();

  private Environment(String settings) {
    this.settings = settings;
    shutdownHook = newShutdownHook(new WeakReference<>(this));
  }

  /**
   * Opens the environment. Loads the native library if it is not loaded: if the system property
   * {@code oxli.library.path} is set and not empty, from this directory only; otherwise from {@code
   * java.library.path}, then from the directory of {@code oxli.jar}, then from a jar of native
   * libraries on the class path or module path. The libraries of that jar are unpacked into a
   * subdirectory of {@code java.io.tmpdir} that only the user can enter.
   *
   * @param settings the gateway's settings
   * @throws OxliException with {@link ResultCode#INVALID_STATE} if an environment is open in this
   *     process; that environment is not changed. With the gateway's code if the gateway refuses.
   *     If native code has opened an environment with the gateway's functions, the gateway refuses,
   *     and this method then closes that environment.
   * @throws UnsatisfiedLinkError if the native library cannot be loaded; the message states the
   *     reason and the remedy. Later attempts throw an error with the same message.
   */
  public static Environment open(String settings) {
    Objects.requireNonNull(settings, "settings");
    NativeLibrary.load();
    // `isOpen` is needed if the application has replaced the system properties.
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
          OxliImpl.env_close(); // otherwise the next attempt finds the class cache and fails
          throw failure;
        }
        isOpen = true;
      }
      environment.addShutdownHook();
      return environment;
    } finally {
      if (!isOpen) System.getProperties().remove(CLAIM);
    }
  }

  /**
   * Makes a connection. It is closed until {@link Connection#open}.
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

  /** Makes a z-block to receive with. */
  public ZBlock newZBlock() {
    final ZBlock zblock = new ZBlock(this);
    zblock.create(null);
    return zblock;
  }

  /**
   * Makes a z-block to send.
   *
   * @param memory a direct buffer; the z-block consists of the bytes from its position to its
   *     limit. Later changes of position and limit have no effect. The z-block references the
   *     buffer, so that memory allocated by the application stays valid. If the buffer is a view of
   *     a payload or of a received block, the memory is valid only until the gateway frees it.
   * @throws IllegalArgumentException if the buffer is not direct
   */
  public ZBlock newZBlock(ByteBuffer memory) {
    final ByteBuffer slice = ZBlock.memoryOf(memory);
    final ZBlock zblock = new ZBlock(this);
    zblock.create(slice);
    return zblock;
  }

  /**
   * Sets the handler of the gateway's exit event, until the next call or the close.
   *
   * @param handler the handler, or null for none
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
   * environment. When this method returns, another environment can be opened. If another thread is
   * closing this environment, this method waits for it, except inside {@link
   * IExitEventHandler#onExitEvent}.
   *
   * <p>First writes lines to the gateway's log, at level info, for the connections and z-blocks
   * that are not closed, and for the outgoing messages of these connections: at most 20 lines, and
   * one with the number of the others. The lines are also written if the virtual machine ends
   * before the close. Objects that the application closes by closing their connection are not
   * logged.
   *
   * @throws IllegalStateException if the calling thread is inside {@code onMessage} or inside a
   *     post; nothing is closed then
   * @throws OxliException the first error, to which later ones are added as suppressed exceptions;
   *     everything is closed nevertheless
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
    if (nativeCloseStarted.compareAndSet(false, true)) {
      closeNative(errors);
    } else if (!ExitEvents.isCaller()) { // the gateway may wait for the handler while it closes
      closed.join();
    }
    errors.throwFirst();
  }

  private void closeNative(CloseErrors errors) {
    synchronized (LIFECYCLE) {
      isOpen = false;
      errors.run(() -> Results.check("Environment.close", this, OxliImpl.env_close()));
      // After env_close, because the gateway may raise the event while it closes.
      errors.run(ExitEvents::unregister);
      System.getProperties().remove(CLAIM);
      errors.run(this::removeShutdownHook);
    }
    closed.complete(null);
  }

  private void addShutdownHook() {
    try {
      Runtime.getRuntime().addShutdownHook(shutdownHook);
    } catch (IllegalStateException e) {
      // The virtual machine is shutting down.
    }
  }

  private void removeShutdownHook() {
    try {
      Runtime.getRuntime().removeShutdownHook(shutdownHook);
    } catch (IllegalStateException e) {
      // The virtual machine is shutting down. The hook returns, because the environment is closing.
    }
  }

  /**
   * Makes the shutdown hook, which references neither the environment nor the class loader and
   * thread locals of the calling thread.
   */
  private static Thread newShutdownHook(WeakReference<Environment> reference) {
    final Thread hook = new Thread(null, () -> {
      final Environment environment = reference.get();
      if (environment == null || environment.closing) return;
      final Thread writer = new Thread(() -> {
        final List<String> lines = environment.unclosed();
        lines.add(0, environment + ": " + environment.origin.age() + environment.origin.place());
        log("the virtual machine ends before the close of ", lines);
      }, "oxli-shutdown-log");
      writer.setDaemon(true);
      writer.start();
      try {
        writer.join(MAX_LOG_MILLIS); // limited, because writing to a full pipe does not return
      } catch (InterruptedException e) {
        // The virtual machine ends without the rest of the lines.
      }
    }, "oxli-shutdown", 0, false);
    hook.setContextClassLoader(null);
    return hook;
  }

  /**
   * Returns lines for what is not closed: one for each connection, and one for each group of
   * outgoing messages and z-blocks.
   */
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
   * Returns a description of the objects that are not closed, for people to read: one line for each
   * connection, listener and publisher, and one for each group of outgoing messages and z-blocks.
   * The format may change.
   *
   * <p>The line of a connection, listener or publisher contains the first 60 characters of its
   * settings, without passwords, its latest known state, its age, and the number of messages
   * delivered or posted. The state is recorded when the object is made, opened or shut, when {@code
   * getState} returns, when a call on a connection fails, and when an {@link
   * org.quendel.oxli.messages.OpenMessage} or {@link org.quendel.oxli.messages.CloseMessage} is
   * delivered. This method does not call the gateway. It adds the stack trace of each thread that
   * is inside a call that may deliver messages or makes a connection or listener, or inside a call
   * on a publisher.
   *
   * <p>With {@code -Doxli.dump.origins=true}, this method adds to each object the stack trace of
   * the call that made the object, and objects made at different places are in different groups.
   * The property is read once, when the first environment is opened. If it is set, making an
   * object takes some microseconds more.
   *
   * <p>This method can be called at any time: inside {@code onMessage}, in an exit event handler,
   * while another thread closes the environment, and after that. It waits for no other thread. The
   * effect of calls in progress on other threads may be missing.
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

  /** Returns "environment" and the first 60 characters of the settings, without passwords. */
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
   * Runs a call that needs an open environment and uses none of its objects. The environment is not
   * closed during the call.
   *
   * @throws IllegalStateException if no environment is open
   */
  static <T> T whileOpen(Supplier<T> call) {
    requireAnyOpen(); // checked first, because closing an environment locks LIFECYCLE for long
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
    // The static initialiser of OxliImpl reports the reason of a failure only the first time.
    NativeLibrary.load();
    return Objects.requireNonNull(line, "line");
  }
}
