package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.Supplier;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;

/**
 * The gateway's library, opened for this process: one at a time. Owns the connections and z-blocks
 * made from it. May be used by any thread.
 */
public final class Environment implements AutoCloseable {
  /**
   * Held while the environment of the process opens or ends, and while something needs it open. Of
   * other locks only the instance's own is taken inside it.
   */
  private static final Object LIFECYCLE = new Object();

  private static boolean isOpen; // guarded by LIFECYCLE

  /**
   * Every connection in a native or about to enter one is in here: a released one stays until its
   * outermost call has returned.
   */
  private final Set<Connection> connections = ConcurrentHashMap.newKeySet();

  /** All that are not closed. */
  private final Set<ZBlock> zblocks = ConcurrentHashMap.newKeySet();

  private boolean closing; // guarded by this, which is held for no call into native code
  private boolean ended; // guarded by LIFECYCLE

  private Environment() {}

  /**
   * Opens the environment, loading the native library first if need be.
   *
   * @param settings the gateway's
   * @throws OxliException with {@link ResultCode#INVALID_STATE} when one is open already
   * @throws UnsatisfiedLinkError when the native library cannot be loaded; its message names every
   *     place tried. Later attempts in the process fail with {@link NoClassDefFoundError}.
   */
  public static Environment open(String settings) {
    Objects.requireNonNull(settings, "settings");
    synchronized (LIFECYCLE) {
      final int code = OxliImpl.env_open(settings);
      if (code == ResultCode.OK) {
        isOpen = true;
        return new Environment();
      }
      final OxliException failure = Results.failure("Environment.open", code);
      // What a failed attempt leaves would block the next one.
      if (!isOpen) OxliImpl.env_close();
      throw failure;
    }
  }

  /**
   * Makes a connection, closed at first.
   *
   * @param settings the gateway's
   * @throws OxliException when the gateway refuses
   */
  public Connection newConnection(String settings) {
    Objects.requireNonNull(settings, "settings");
    final Connection connection = new Connection(this);
    connection.create(settings);
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
   * @param memory a direct buffer: the bytes from its position to its limit. It stays the caller's;
   *     its later position and limit do not count. It must be of the application's own: memory that
   *     somebody frees, such as a payload or a received block, is not kept by keeping its buffer.
   * @throws IllegalArgumentException when the buffer is not direct
   */
  public ZBlock newZBlock(ByteBuffer memory) {
    final ByteBuffer slice = ZBlock.memoryOf(memory);
    final ZBlock zblock = new ZBlock(this);
    zblock.create(slice);
    return zblock;
  }

  /**
   * Sets who receives the gateway's exit event, until the next call or the close.
   *
   * @param handler null for nobody
   * @throws OxliException when the gateway refuses
   */
  public void onExit(IExitEventHandler handler) {
    synchronized (LIFECYCLE) {
      requireOpen();
      ExitEvents.handleWith(handler);
    }
  }

  /**
   * Releases all connections and z-blocks, waiting for calls in progress on them, and closes the
   * environment. When it returns another can be opened.
   *
   * @throws IllegalStateException when called from inside {@code onMessage}; nothing is released
   * @throws OxliException the first error reported, with others suppressed; all is released
   */
  @Override
  public void close() {
    for (Connection connection : connections) {
      if (connection.isEnteredByCaller()) {
        throw new IllegalStateException("the environment cannot be closed inside onMessage");
      }
    }
    synchronized (this) {
      closing = true;
    }
    final Releases releases = new Releases();
    for (Connection connection : connections) releases.run(connection::close);
    for (ZBlock zblock : zblocks) releases.run(zblock::close);
    releases.run(this::end);
    releases.finish();
  }

  private void end() {
    synchronized (LIFECYCLE) {
      if (ended) return;
      ended = true;
      isOpen = false;
      final int code = OxliImpl.env_close();
      // Afterwards: the gateway may raise the event while it closes.
      ExitEvents.handleNoMore();
      Results.check("Environment.close", code);
    }
  }

  /** Called with the connection's lock held and before its native object is made. */
  void register(Connection connection) {
    synchronized (this) {
      requireOpen();
      connections.add(connection);
    }
  }

  /** Called when the connection is released and no call on it is in progress any more. */
  void forget(Connection connection) {
    connections.remove(connection);
  }

  /** The same for a z-block. */
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
   * @throws IllegalStateException when there is none
   */
  static <T> T whileOpen(Supplier<T> call) {
    synchronized (LIFECYCLE) {
      if (!isOpen) throw new IllegalStateException("no environment is open");
      return call.get();
    }
  }

  private synchronized void requireOpen() {
    if (closing) throw new IllegalStateException("the environment has been closed");
  }

  /**
   * Writes a line to the gateway's log, as the three below; possible without an open environment.
   *
   * @throws OxliException when the gateway refuses
   */
  public static void logDebug(String text) {
    Results.check("Environment.logDebug", OxliImpl.log_debugstr(line(text)));
  }

  /** Writes a line to the gateway's log; see {@link #logDebug}. */
  public static void logTrace(String text) {
    Results.check("Environment.logTrace", OxliImpl.log_tracestr(line(text)));
  }

  /** Writes a line to the gateway's log; see {@link #logDebug}. */
  public static void logInfo(String text) {
    Results.check("Environment.logInfo", OxliImpl.log_infostr(line(text)));
  }

  /** Writes a line to the gateway's log; see {@link #logDebug}. */
  public static void logError(String text) {
    Results.check("Environment.logError", OxliImpl.log_errorstr(line(text)));
  }

  private static String line(String text) {
    return Objects.requireNonNull(text, "text");
  }
}
