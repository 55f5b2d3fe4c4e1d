package org.quendel.oxli;

import java.util.List;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.function.IntSupplier;
import org.quendel.oxli.impl.IntRef;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;

/**
 * A connection to the gateway. Made by {@link Environment#newConnection}. Owns its listeners and
 * publishers. Thread-safe.
 *
 * <p>The calls that may deliver messages ({@link #process}, and opening, shutting and closing the
 * connection or one of its listeners) exclude each other by the delivery lock of the connection.
 * Threads that wait for the lock acquire it in the order of their calls. While {@link #process}
 * waits for messages, it lets another thread acquire the lock at least every {@value #SLICE_MILLIS}
 * milliseconds. Inside {@code onMessage} the delivering thread may make further calls; {@link
 * ISubscriber} states the limits. The first {@link Listener#getScheme} of an opening waits for
 * these calls, too. All other calls, and calls on publishers, do not wait for a {@code process} in
 * progress.
 */
public final class Connection implements AutoCloseable {
  /** Maximum duration in milliseconds of one wait of {@link #process} in the gateway. */
  private static final int SLICE_MILLIS = 50;

  private final Environment environment; // null if native code owns the connection
  private final String settings;
  private final Origin origin = new Origin();

  /** The delivery lock: locked during each call that may deliver messages. Fair. */
  private final VisibleLock lock = new VisibleLock(true);

  /**
   * Locked during each native that uses the handle without the delivery lock. GatewayLock states
   * the lock order.
   */
  private final Object handleLock = new Object();

  /** 0 if closed. Written inside both locks, so it stays valid inside either of them. */
  private volatile long handle;

  /** The listeners that are not released. Listeners are added inside handleLock. */
  private final Set<Listener> listeners = ConcurrentHashMap.newKeySet();
  /** The publishers that are not released. Publishers are added inside handleLock. */
  private final Set<Publisher> publishers = ConcurrentHashMap.newKeySet();

  private volatile String status = "being made"; // the latest known state, for dump
  private volatile boolean wakeup; // whether wakeup was called since the last return of process

  // Guarded by the delivery lock, except that dump reads `deliveries` without it.
  private long deliveries;
  private int shuts;
  private Listener refusedBy; // the last listener whose subscriber returned another code than OK
  private int refusal; // that code

  Connection(Environment environment, String settings) {
    this.environment = environment;
    this.settings = settings;
  }

  /**
   * Makes an object for a connection that native code owns. Native code calls this constructor. The
   * object represents that connection in callbacks. It owns nothing, {@link #close} does nothing,
   * and every other method that uses the gateway throws {@link IllegalStateException}.
   */
  Connection(long handle) {
    this(null, "of native code");
  }

  void create() {
    lock.lock();
    try {
      // Registered first, inside the lock: a close of the environment then waits for this call.
      environment.register(this);
      final ObjRef ref = new ObjRef();
      call("Environment.newConnection", this, () -> OxliImpl.conn_new(settings, ref, this));
      synchronized (handleLock) {
        handle = ref.getRef();
      }
      noteState();
    } finally {
      unlock();
    }
  }

  /**
   * Opens the connection. May deliver messages.
   *
   * @param openSettings the gateway's settings, in addition to those that the connection was made
   *     with
   * @throws OxliException if the gateway refuses
   */
  public void open(String openSettings) {
    Objects.requireNonNull(openSettings, "openSettings");
    final long conn = enter();
    try {
      call("Connection.open", this, () -> OxliImpl.conn_open(conn, openSettings));
    } finally {
      noteState();
      unlock();
    }
  }

  /**
   * Closes the connection in the gateway only; it can be opened again. May deliver messages.
   *
   * @throws OxliException if the gateway refuses
   */
  public void shut() {
    final long conn = enter();
    try {
      ++shuts;
      call("Connection.shut", this, () -> OxliImpl.conn_close(conn));
      for (Publisher publisher : publishers) publisher.noteShut();
    } finally {
      noteState();
      unlock();
    }
  }

  /**
   * Delivers the messages that are queued for the listeners, on the calling thread. Call it in a
   * loop.
   *
   * <p>If no message is queued, waits for one, at most for the timeout. Returns after a message was
   * delivered to a listener made from this connection, when the timeout has passed, after {@link
   * #wakeup}, or when another thread has shut or closed the connection.
   *
   * <p>A virtual thread is pinned to its carrier thread during the call, as in every native: use a
   * platform thread.
   *
   * @param timeoutMillis the timeout in milliseconds; 0 means no wait; the gateway defines the
   *     meaning of a negative timeout
   * @throws OxliException if the gateway refuses, or if a subscriber returns a code other than 0
   */
  public void process(int timeoutMillis) {
    final long conn = enter();
    try {
      final boolean isLong = timeoutMillis > SLICE_MILLIS;
      final long start = isLong ? System.nanoTime() : 0;
      final long deliveriesBefore = deliveries;
      final int shutsBefore = shuts;
      long left = timeoutMillis;
      do {
        final int slice = (int) Math.min(left, wakeup ? 0 : SLICE_MILLIS);
        refusedBy = null;
        check("Connection.process", this, OxliImpl.conn_process(conn, slice));
        if (!isLong || wakeup || deliveries != deliveriesBefore) return;
        yieldDeliveryLock();
        left = timeoutMillis - TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - start);
      } while (left > 0 && handle == conn && shuts == shutsBefore);
    } finally {
      wakeup = false;
      unlock();
    }
  }

  /** Lets waiting threads acquire the delivery lock, unless this call is nested in another one. */
  private void yieldDeliveryLock() {
    if (lock.getHoldCount() > 1 || !lock.hasQueuedThreads()) return;
    unlock();
    lock.lock(); // the lock is fair: this thread acquires it after those that wait
  }

  /**
   * Makes a {@link #process} in progress return within {@value #SLICE_MILLIS} milliseconds. If none
   * is in progress, makes the next one return without waiting for messages. Several calls have the
   * effect of one. Does not wait.
   */
  public void wakeup() {
    requireOpen();
    wakeup = true;
  }

  /**
   * Returns the state: with the stand-in gateway, one of {@link State}.
   *
   * @throws OxliException if the gateway refuses
   */
  public int getState() {
    synchronized (handleLock) {
      final IntRef state = new IntRef();
      Results.check("Connection.getState", this, OxliImpl.conn_getstate(requireOpen(), state));
      status = State.nameOf(state.get());
      return state.get();
    }
  }

  /** Reads the state for dump, unless the connection is closed. */
  private void noteState() {
    synchronized (handleLock) {
      final IntRef state = new IntRef();
      if (handle == 0 || OxliImpl.conn_getstate(handle, state) != ResultCode.OK) return;
      status = State.nameOf(state.get());
    }
  }

  /**
   * Returns an empty string: the gateway's library has no function for the name of a connection.
   */
  public String getName() {
    synchronized (handleLock) {
      return OxliImpl.conn_getname(requireOpen());
    }
  }

  /**
   * Makes a listener. It is closed until {@link Listener#open}. Waits only for calls that make,
   * open, shut or close a connection or listener: the whole process runs one such call at a time.
   *
   * @param listenerSettings the gateway's settings
   * @param subscriber receives the messages
   * @throws OxliException if the gateway refuses
   */
  public Listener newListener(String listenerSettings, ISubscriber subscriber) {
    Objects.requireNonNull(listenerSettings, "listenerSettings");
    Objects.requireNonNull(subscriber, "subscriber");
    final Listener listener = new Listener(this, subscriber, listenerSettings);
    GatewayLock.call(() -> {
      synchronized (handleLock) {
        listener.create(requireOpen());
        listeners.add(listener);
      }
      return ResultCode.OK;
    });
    return listener;
  }

  /**
   * Makes a publisher. It is closed until {@link Publisher#open}.
   *
   * @param publisherSettings the gateway's settings
   * @throws OxliException if the gateway refuses
   */
  public Publisher newPublisher(String publisherSettings) {
    Objects.requireNonNull(publisherSettings, "publisherSettings");
    final Publisher publisher = new Publisher(this, publisherSettings);
    synchronized (handleLock) {
      publisher.create(requireOpen());
      publishers.add(publisher);
    }
    return publisher;
  }

  /**
   * Closes the listeners, the publishers and the connection. Waits for the calls in progress on
   * other threads. Allowed inside {@code onMessage}.
   *
   * @throws IllegalStateException if the calling thread is inside a post of one of the publishers;
   *     nothing is closed then
   * @throws OxliException the first error, to which later ones are added as suppressed exceptions;
   *     everything is closed nevertheless
   */
  @Override
  public void close() {
    lock.lock();
    try {
      if (handle == 0) return;
      if (isPostingCaller()) {
        throw new IllegalStateException(this + " cannot be closed inside a post of its publishers");
      }
      final long conn = handle;
      final List<Listener> openListeners;
      synchronized (handleLock) {
        // Closed for callers first, so that callbacks can add no listener or publisher.
        handle = 0;
        openListeners = Origin.inOrder(listeners, Listener::origin);
      }
      status = "closing";
      final CloseErrors errors = new CloseErrors();
      for (Listener listener : openListeners) errors.run(listener::close);
      for (Publisher publisher : publishers) errors.run(publisher::close);
      errors.run(() -> call("Connection.close", this, () -> OxliImpl.conn_destroy(conn)));
      errors.throwFirst();
    } finally {
      unlock();
    }
  }

  /** Returns "connection" and the first 60 characters of the settings, without passwords. */
  @Override
  public String toString() {
    return Results.nameOf("connection", settings);
  }

  Origin origin() {
    return origin;
  }

  /** Adds the connection, its listeners and its publishers to the dump. */
  void dump(Dump dump) {
    dump.add(summary() + ", messages delivered: " + deliveries, origin, () -> {
      dump.addOwner(lock, "a call that may deliver");
      for (Listener each : Origin.inOrder(listeners, Listener::origin)) each.dump(dump);
      for (Publisher each : Origin.inOrder(publishers, Publisher::origin)) each.dump(dump);
    });
  }

  /** Adds lines for the connection and its outgoing messages, unless the connection is closed. */
  void addUnclosed(List<String> lines) {
    if (handle == 0) return;
    lines.add(summary() + origin.place());
    for (Publisher each : Origin.inOrder(publishers, Publisher::origin)) each.addUnclosed(lines);
  }

  private String summary() {
    return this + ": " + status + ", " + origin.age();
  }

  /** Returns whether the calling thread is inside a call that may deliver, or inside a post. */
  boolean isEnteredByCaller() {
    return lock.isHeldByCurrentThread() || isPostingCaller();
  }

  private boolean isPostingCaller() {
    for (Publisher publisher : publishers) {
      if (publisher.isEnteredByCaller()) return true;
    }
    return false;
  }

  /** Locks the delivery lock. Call {@link #unlock} to unlock it. */
  void lock() {
    lock.lock();
  }

  /**
   * Unlocks the delivery lock. At the end of the outermost call on a closed connection, removes the
   * connection from the environment.
   */
  void unlock() {
    if (handle == 0 && environment != null && lock.getHoldCount() == 1) environment.forget(this);
    lock.unlock();
  }

  /**
   * Runs a native that locks a process-wide mutex and may deliver messages.
   *
   * @param object the object that the operation is called on
   * @throws OxliException if the result is not OK
   */
  void call(String operation, Object object, IntSupplier nativeCall) {
    refusedBy = null;
    check(operation, object, GatewayLock.call(nativeCall));
  }

  private void check(String operation, Object object, int code) {
    if (code == ResultCode.OK) return;
    noteState(); // the gateway may have lost the connection
    if (refusedBy == null || refusal != code) throw Results.failure(operation, object, code);
    throw new OxliException(operation + " (" + object + "): the subscriber of " + refusedBy
        + " returned " + code + Results.inHex(code), code);
  }

  /** Counts a delivered message. Called by its listener, inside the delivery lock. */
  void noteDelivery() {
    ++deliveries;
  }

  /** Records the result of a subscriber. Called by its listener, inside the delivery lock. */
  void noteResult(Listener listener, int code) {
    refusedBy = listener;
    refusal = code;
  }

  void forget(Listener listener) {
    listeners.remove(listener);
  }

  void forget(Publisher publisher) {
    publishers.remove(publisher);
  }

  /** Locks the delivery lock and returns the handle. Call {@link #unlock} to unlock it. */
  private long enter() {
    lock.lock();
    if (handle != 0) return handle;
    unlock();
    throw closed();
  }

  /** Returns the handle, which stays valid while the calling thread has locked one of the locks. */
  private long requireOpen() {
    if (handle == 0) throw closed();
    return handle;
  }

  private IllegalStateException closed() {
    return new IllegalStateException(this + (environment != null ? " is closed"
        : " belongs to native code: Java code cannot use it"));
  }
}
