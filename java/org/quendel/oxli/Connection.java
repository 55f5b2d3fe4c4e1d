package org.quendel.oxli;

import java.util.ArrayList;
import java.util.LinkedHashSet;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.locks.ReentrantLock;
import org.quendel.oxli.impl.IntRef;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;

/**
 * A connection to the gateway. Made by {@link Environment#newConnection}; owns its listeners and
 * publishers.
 *
 * <p>One lock, fair, is held by every call on the connection and its listeners: one thread at a
 * time is inside, and another one waits, for a {@link #process} in progress as well. Choose
 * timeouts of {@code process} by how long others may wait. The thread inside may call again from
 * {@code onMessage}, within the limits that {@link ISubscriber} gives. Publishers have locks of their own.
 */
public final class Connection implements AutoCloseable {
  private final Environment environment;
  private final ReentrantLock lock = new ReentrantLock(true);
  private final Set<Listener> listeners = new LinkedHashSet<>(); // guarded by lock
  /** Grows with the lock held; a publisher leaves on any thread, when it is released. */
  private final Set<Publisher> publishers = ConcurrentHashMap.newKeySet();
  private long handle; // guarded by lock; 0 before the native object exists and once it is released

  Connection(Environment environment) {
    this.environment = environment;
  }

  /**
   * Called by native code for a connection that other native code owns. The object stands for it in
   * callbacks: it owns nothing, {@link #close} does nothing and every other call throws {@link
   * IllegalStateException}.
   */
  Connection(long handle) {
    this.environment = null;
  }

  void create(String settings) {
    lock.lock();
    try {
      // First, with the lock held: closing the environment then waits for the native object.
      environment.register(this);
      final ObjRef ref = new ObjRef();
      Bindings.check("Environment.newConnection",
          () -> OxliImpl.conn_new(settings, ref, this));
      handle = ref.getRef();
    } finally {
      unlock();
    }
  }

  /**
   * Opens the connection. May deliver messages.
   *
   * @param settings the gateway's, in addition to those it was made with
   * @throws OxliException when the gateway refuses
   */
  public void open(String settings) {
    Objects.requireNonNull(settings, "settings");
    final long conn = enter();
    try {
      Bindings.check("Connection.open", () -> OxliImpl.conn_open(conn, settings));
    } finally {
      unlock();
    }
  }

  /**
   * Closes the connection, which can be opened again. May deliver messages.
   *
   * @throws OxliException when the gateway refuses
   */
  public void shut() {
    final long conn = enter();
    try {
      Bindings.check("Connection.shut", () -> OxliImpl.conn_close(conn));
    } finally {
      unlock();
    }
  }

  /**
   * Delivers what is queued for the listeners, on this thread. To be called again and again.
   *
   * @param timeoutMillis how long to wait when nothing is queued
   * @throws OxliException when the gateway refuses, or with a subscriber's non-zero result
   */
  public void process(int timeoutMillis) {
    final long conn = enter();
    try {
      Results.check("Connection.process", OxliImpl.conn_process(conn, timeoutMillis));
    } finally {
      unlock();
    }
  }

  /**
   * The gateway's number of the connection's state.
   *
   * @throws OxliException when the gateway refuses
   */
  public int getState() {
    final long conn = enter();
    try {
      final IntRef state = new IntRef();
      Results.check("Connection.getState", OxliImpl.conn_getstate(conn, state));
      return state.get();
    } finally {
      unlock();
    }
  }

  /** The gateway's name of the connection; empty when it has none. */
  public String getName() {
    final long conn = enter();
    try {
      return OxliImpl.conn_getname(conn);
    } finally {
      unlock();
    }
  }

  /**
   * Makes a listener, closed at first.
   *
   * @param settings the gateway's
   * @param subscriber receives the messages
   * @throws OxliException when the gateway refuses
   */
  public Listener newListener(String settings, ISubscriber subscriber) {
    Objects.requireNonNull(settings, "settings");
    Objects.requireNonNull(subscriber, "subscriber");
    final long conn = enter();
    try {
      final Listener listener = new Listener(this, subscriber);
      listener.create(conn, settings);
      listeners.add(listener);
      return listener;
    } finally {
      unlock();
    }
  }

  /**
   * Makes a publisher, closed at first.
   *
   * @param settings the gateway's
   * @throws OxliException when the gateway refuses
   */
  public Publisher newPublisher(String settings) {
    Objects.requireNonNull(settings, "settings");
    final long conn = enter();
    try {
      final Publisher publisher = new Publisher(this);
      publisher.create(conn, settings);
      publishers.add(publisher);
      return publisher;
    } finally {
      unlock();
    }
  }

  /**
   * Releases listeners, publishers and the connection, waiting for calls in progress on other
   * threads. Possible inside {@code onMessage}.
   *
   * @throws OxliException the first error reported, with others suppressed; all is released
   */
  @Override
  public void close() {
    lock.lock();
    try {
      if (handle == 0) return;
      final long conn = handle;
      // First: a callback meets a released connection, to which nothing can be added.
      handle = 0;
      final Releases releases = new Releases();
      for (Listener listener : new ArrayList<>(listeners)) releases.run(listener::close);
      for (Publisher publisher : publishers) releases.run(publisher::close);
      releases.run(() -> Bindings.check("Connection.close",
          () -> OxliImpl.conn_destroy(conn)));
      releases.finish();
    } finally {
      unlock();
    }
  }

  boolean isEnteredByCaller() {
    return lock.isHeldByCurrentThread();
  }

  void lock() {
    lock.lock();
  }

  void unlock() {
    if (handle == 0 && environment != null && lock.getHoldCount() == 1) environment.forget(this);
    lock.unlock();
  }

  /** Called with the lock held. */
  void forget(Listener listener) {
    listeners.remove(listener);
  }

  void forget(Publisher publisher) {
    publishers.remove(publisher);
  }

  /** Takes the lock, which {@link #unlock} gives back, and gives the handle. */
  private long enter() {
    lock.lock();
    if (handle != 0) return handle;
    unlock();
    throw new IllegalStateException("the connection has been released or belongs to native code");
  }
}
