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
 * A connection to the gateway. Made by {@link Environment#newConnection}; owns its listeners and
 * publishers. Thread-safe.
 *
 * <p>The calls that may deliver messages ({@link #process}, and opening, shutting and closing the
 * connection or one of its listeners) wait for each other: one thread at a time is inside, and
 * those that wait get their turn in the order in which they came. A {@link #process} that waits for
 * messages lets another thread in at least every {@value #SLICE_MILLIS} milliseconds. The thread
 * inside may call again from {@code onMessage}, within the limits that {@link ISubscriber} gives.
 * All other calls, and those on publishers, do not wait for a {@code process} in progress.
 */
public final class Connection implements AutoCloseable {
  /** Milliseconds that {@link #process} at most waits in the gateway at a time. */
  private static final int SLICE_MILLIS = 50;

  private final Environment environment; // null if native code owns the connection
  private final String settings;
  private final Origin origin = new Origin();

  /** The delivery lock: locked during each call that may deliver. */
  private final VisibleLock lock = new VisibleLock(true);

  /** Locked during each native that uses the handle without the delivery lock; see GatewayLock. */
  private final Object handleLock = new Object();

  /** 0 if closed. Written inside both locks; it stays valid inside one of them. */
  private volatile long handle;

  /** Added to inside handleLock; the thread that releases a listener removes it. */
  private final Set<Listener> listeners = ConcurrentHashMap.newKeySet();
  /** The same for publishers. */
  private final Set<Publisher> publishers = ConcurrentHashMap.newKeySet();

  private volatile String status = "being made"; // the state when it was last seen
  private volatile boolean wakeup; // called, and no process has returned since

  // Guarded by the delivery lock; dump reads the first one without it.
  private long deliveries;
  private int shuts;
  private Listener refusedBy; // the last listener whose subscriber returned another code than OK
  private int refusal; // that code

  Connection(Environment environment, String settings) {
    this.environment = environment;
    this.settings = settings;
  }

  /**
   * Called by native code for a connection that other native code owns. The object stands for it in
   * callbacks: it owns nothing, {@link #close} does nothing and every other call throws {@link
   * IllegalStateException}.
   */
  Connection(long handle) {
    this(null, "of native code");
  }

  void create() {
    lock.lock();
    try {
      // First, inside the lock: closing the environment then waits for the native object.
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
   * Closes the connection on the gateway's side; it can be opened again. May deliver messages.
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
   * Delivers the messages that are queued for the listeners, on this thread. To be called again and
   * again.
   *
   * <p>If nothing is queued it waits until something is, at most for the timeout. It returns after
   * a message was delivered to a listener made from this connection, when the timeout has passed,
   * after {@link #wakeup}, or when another thread has shut or closed the connection meanwhile.
   *
   * <p>A virtual thread is pinned to its carrier thread during the call, as in every native: use a
   * platform thread.
   *
   * @param timeoutMillis in milliseconds, 0 for no wait; what a negative one means is up to the
   *     gateway
   * @throws OxliException if the gateway refuses, or with a subscriber's result other than 0
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
        letOthersIn();
        left = timeoutMillis - TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - start);
      } while (left > 0 && handle == conn && shuts == shutsBefore);
    } finally {
      wakeup = false;
      unlock();
    }
  }

  /** Unlocks the delivery lock for those that wait for it, unless a call is in progress around. */
  private void letOthersIn() {
    if (lock.getHoldCount() > 1 || !lock.hasQueuedThreads()) return;
    unlock();
    lock.lock(); // fair: after them
  }

  /**
   * Makes a {@link #process} in progress return within {@value #SLICE_MILLIS} milliseconds, or, if
   * none is in progress, the next one without waiting for messages. Several calls count as one.
   * Does not wait.
   */
  public void wakeup() {
    requireOpen();
    wakeup = true;
  }

  /**
   * Returns the state: one of {@link State} with the stand-in gateway.
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

  /** Sees the state for dump, unless the connection is closed. */
  private void noteState() {
    synchronized (handleLock) {
      final IntRef state = new IntRef();
      if (handle == 0 || OxliImpl.conn_getstate(handle, state) != ResultCode.OK) return;
      status = State.nameOf(state.get());
    }
  }

  /** Returns the connection's name in the gateway, empty if it has none. */
  public String getName() {
    synchronized (handleLock) {
      return OxliImpl.conn_getname(requireOpen());
    }
  }

  /**
   * Makes a listener, closed at first. Waits only for calls that open, shut, close or make a
   * connection or listener: such calls of the whole process run one at a time.
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
   * Makes a publisher, closed at first.
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
   * Closes listeners, publishers and the connection, waiting for the calls in progress on other
   * threads. Possible inside {@code onMessage}.
   *
   * @throws IllegalStateException if the calling thread is inside a post of one of the publishers;
   *     nothing is closed then
   * @throws OxliException the first error reported, with others suppressed; all is closed
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
        // First: callbacks find the connection closed, to which nothing can be added.
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

  /** Returns the beginning of the settings. */
  @Override
  public String toString() {
    return Results.nameOf("connection", settings);
  }

  /** Returns when it was made. */
  Origin origin() {
    return origin;
  }

  /** Adds the connection and what it owns. */
  void dump(Dump dump) {
    dump.add(summary() + ", messages delivered: " + deliveries, origin, () -> {
      dump.addOwner(lock, "a call that may deliver");
      for (Listener each : Origin.inOrder(listeners, Listener::origin)) each.dump(dump);
      for (Publisher each : Origin.inOrder(publishers, Publisher::origin)) each.dump(dump);
    });
  }

  /** Adds a line for the connection unless it is closed, and lines for its outgoing messages. */
  void addUnclosed(List<String> lines) {
    if (handle == 0) return;
    lines.add(summary() + origin.place());
    for (Publisher each : Origin.inOrder(publishers, Publisher::origin)) each.addUnclosed(lines);
  }

  private String summary() {
    return this + ": " + status + ", " + origin.age();
  }

  /** Returns whether the calling thread is inside a call that may deliver or post. */
  boolean isEnteredByCaller() {
    return lock.isHeldByCurrentThread() || isPostingCaller();
  }

  private boolean isPostingCaller() {
    for (Publisher publisher : publishers) {
      if (publisher.isEnteredByCaller()) return true;
    }
    return false;
  }

  /** Locks the delivery lock, which {@link #unlock} unlocks. */
  void lock() {
    lock.lock();
  }

  /** A closed connection leaves the environment when its outermost call returns. */
  void unlock() {
    if (handle == 0 && environment != null && lock.getHoldCount() == 1) environment.forget(this);
    lock.unlock();
  }

  /**
   * Runs a native that has a process-wide mutex locked and may deliver messages.
   *
   * @param object what it is called on
   * @throws OxliException if the result is not OK
   */
  void call(String operation, Object object, IntSupplier nativeCall) {
    refusedBy = null;
    check(operation, object, GatewayLock.call(nativeCall));
  }

  private void check(String operation, Object object, int code) {
    if (code == ResultCode.OK) return;
    noteState(); // of a connection that the gateway may have lost
    if (refusedBy == null || refusal != code) throw Results.failure(operation, object, code);
    throw new OxliException(operation + " (" + object + "): the subscriber of " + refusedBy
        + " returned " + code + Results.inHex(code), code);
  }

  /** Called inside the delivery lock, by the listener that a message was delivered to. */
  void noteDelivery() {
    ++deliveries;
  }

  /** Called inside the delivery lock, by the listener whose subscriber refused a message. */
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

  /** Locks the delivery lock, which {@link #unlock} unlocks, and returns the handle. */
  private long enter() {
    lock.lock();
    if (handle != 0) return handle;
    unlock();
    throw closed();
  }

  /** Returns the handle, which stays valid inside one of the locks. */
  private long requireOpen() {
    if (handle == 0) throw closed();
    return handle;
  }

  private IllegalStateException closed() {
    final String reason = environment == null ? " cannot be used" : " is closed";
    return new IllegalStateException(this + reason);
  }
}
