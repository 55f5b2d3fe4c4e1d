package org.quendel.oxli;

import java.util.Objects;
import org.quendel.oxli.impl.IntRef;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.MessageType;

/**
 * Receives messages of a connection and passes them to an {@link ISubscriber}. Made by {@link
 * Connection#newListener}; owned by the connection. Thread-safe. {@link #open}, {@link #shut} and
 * {@link #close} wait for the connection's delivery lock; see {@link Connection}.
 */
public class Listener implements AutoCloseable {
  private final Connection connection; // null if native code owns the listener
  private final ISubscriber subscriber;
  private final String settings;
  private final Origin origin = new Origin();

  /**
   * Locked during each native that uses the handle without the delivery lock. GatewayLock states
   * the lock order.
   */
  private final Object handleLock = new Object();

  // `create` writes the handle inside handleLock only, before a caller can use the listener. After
  // that, both variables are written inside both locks and read inside one of them.
  private long handle;
  private boolean closing;

  private volatile Scheme scheme; // written inside the delivery lock
  private volatile String status = "being made"; // the latest known state, for dump
  private long deliveries; // written inside the delivery lock; dump reads it without the lock

  Listener(Connection connection, ISubscriber subscriber, String settings) {
    this.connection = connection;
    this.subscriber = subscriber;
    this.settings = settings;
  }

  /**
   * Makes an object for a listener that native code owns. Native code calls this constructor. The
   * object represents that listener in callbacks. It owns nothing, {@link #close} does nothing, and
   * every other method that uses the gateway, except {@link #getScheme}, throws {@link
   * IllegalStateException}.
   */
  Listener(long handle) {
    this(null, null, "of native code");
    this.handle = handle;
  }

  void create(long conn) {
    final ObjRef ref = new ObjRef();
    Results.check("Connection.newListener", this,
        OxliImpl.lsn_new(conn, settings, this::deliver, ref, connection, this));
    synchronized (handleLock) {
      handle = ref.getRef();
    }
    noteState();
  }

  private int deliver(Connection from, Listener to, Message message) {
    MessageAccess.acquire(message);
    ++deliveries;
    final int type = message.getType();
    if ((type == MessageType.OPEN || type == MessageType.CLOSE) && !closing) {
      status = State.nameOf(type == MessageType.OPEN ? State.ACTIVE : State.CLOSED);
    }
    final int result;
    try {
      result = subscriber.onMessage(from, to, message);
    } finally {
      MessageAccess.release(message);
      connection.noteDelivery();
    }
    if (result != ResultCode.OK) connection.noteResult(this, result);
    return result;
  }

  /**
   * Opens the listener. After that, {@link Connection#process} delivers its messages. May deliver
   * messages.
   *
   * @param openSettings the gateway's settings, in addition to those that the listener was made
   *     with
   * @throws OxliException if the gateway refuses
   */
  public final void open(String openSettings) {
    Objects.requireNonNull(openSettings, "openSettings");
    final long lsn = enter();
    try {
      scheme = null;
      connection.call("Listener.open", this, () -> OxliImpl.lsn_open(lsn, openSettings));
    } finally {
      noteState();
      connection.unlock();
    }
  }

  /**
   * Closes the listener in the gateway only; it can be opened again. May deliver messages.
   *
   * @throws OxliException if the gateway refuses
   */
  public final void shut() {
    final long lsn = enter();
    try {
      connection.call("Listener.shut", this, () -> OxliImpl.lsn_close(lsn));
    } finally {
      noteState();
      scheme = null;
      connection.unlock();
    }
  }

  /**
   * Returns the state: with the stand-in gateway, one of {@link State}. Does not wait for a {@link
   * Connection#process} in progress.
   *
   * @throws OxliException if the gateway refuses
   */
  public final int getState() {
    synchronized (handleLock) {
      final IntRef state = new IntRef();
      Results.check("Listener.getState", this, OxliImpl.lsn_getstate(requireOpen(), state));
      status = State.nameOf(state.get());
      return state.get();
    }
  }

  /** Reads the state for dump, unless the listener is closed. */
  private void noteState() {
    synchronized (handleLock) {
      final IntRef state = new IntRef();
      if (handle == 0 || closing) return;
      if (OxliImpl.lsn_getstate(handle, state) != ResultCode.OK) return;
      status = State.nameOf(state.get());
    }
  }

  /**
   * Returns an empty string: the gateway's library has no function for the name of a listener.
   */
  public final String getName() {
    synchronized (handleLock) {
      return OxliImpl.lsn_getname(requireOpen());
    }
  }

  /**
   * Returns the scheme of this opening: the same object until the listener is shut or opened again.
   * The first call of an opening waits for a {@link Connection#process} in progress. Native code
   * calls this method when it delivers the first data message of an opening.
   *
   * @throws OxliException if the gateway has no scheme, or if the scheme exceeds a limit
   */
  public Scheme getScheme() {
    final Scheme known = scheme;
    if (known != null) return known;
    // Native code owns the listener, so no Java thread can close it meanwhile.
    if (connection == null) return fetchScheme();
    connection.lock();
    try {
      if (handle == 0) throw closed();
      return fetchScheme();
    } finally {
      connection.unlock();
    }
  }

  private Scheme fetchScheme() {
    if (scheme == null) {
      final Scheme fetched = new Scheme();
      Results.check("Listener.getScheme", this, OxliImpl.lsn_newscheme(handle, fetched));
      fetched.requireComplete("Listener.getScheme", this);
      scheme = fetched;
    }
    return scheme;
  }

  /**
   * Releases the listener. May deliver messages. Allowed inside {@code onMessage}.
   *
   * @throws OxliException if the gateway reports an error; the listener is closed nevertheless
   */
  @Override
  public final void close() {
    if (connection == null) return;
    connection.lock();
    try {
      synchronized (handleLock) {
        if (handle == 0 || closing) return;
        closing = true; // the handle stays valid: messages delivered meanwhile may need the scheme
        status = "closing";
      }
      try {
        connection.call("Listener.close", this, () -> OxliImpl.lsn_destroy(handle));
      } finally {
        synchronized (handleLock) {
          handle = 0;
        }
        scheme = null;
        connection.forget(this);
      }
    } finally {
      connection.unlock();
    }
  }

  /** Returns "listener" and the first 60 characters of the settings, without passwords. */
  @Override
  public String toString() {
    return Results.nameOf("listener", settings);
  }

  Origin origin() {
    return origin;
  }

  /** Adds the listener to the dump. */
  void dump(Dump dump) {
    dump.add(this + ": " + status + ", " + origin.age() + ", messages delivered: " + deliveries,
        origin, () -> {});
  }

  /**
   * Locks the delivery lock and returns the handle. Call {@code connection.unlock} to unlock it.
   */
  private long enter() {
    if (connection == null) throw closed();
    connection.lock();
    if (handle != 0 && !closing) return handle;
    connection.unlock();
    throw closed();
  }

  /** Returns the handle. REQUIRES: one of the two locks is locked. */
  private long requireOpen() {
    if (connection == null || handle == 0 || closing) throw closed();
    return handle;
  }

  private IllegalStateException closed() {
    return new IllegalStateException(this + (connection != null ? " is closed"
        : " belongs to native code: Java code can only read its scheme"));
  }
}
