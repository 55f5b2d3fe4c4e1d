package org.quendel.oxli;

import java.util.Objects;
import org.quendel.oxli.impl.IntRef;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.Message;

/**
 * Receives messages of a connection and hands them to its {@link ISubscriber}. Made by {@link
 * Connection#newListener}. Its calls hold the connection's lock.
 */
public class Listener implements AutoCloseable {
  private final Connection connection;
  private final ISubscriber subscriber;
  private long handle; // this and what follows: guarded by the connection's lock
  private boolean releasing;
  private Scheme scheme;

  Listener(Connection connection, ISubscriber subscriber) {
    this.connection = connection;
    this.subscriber = subscriber;
  }

  /**
   * Called by native code for a listener that other native code owns. The object stands for it in
   * callbacks: it owns nothing, {@link #close} does nothing and every call but {@link #getScheme}
   * throws {@link IllegalStateException}.
   */
  Listener(long handle) {
    this(null, null);
    this.handle = handle;
  }

  void create(long conn, String settings) {
    final ObjRef ref = new ObjRef();
    Bindings.check("Connection.newListener",
        () -> OxliImpl.lsn_new(conn, settings, this::deliver, ref, connection, this));
    handle = ref.getRef();
  }

  private int deliver(Connection from, Listener to, Message message) {
    try {
      return subscriber.onMessage(from, to, message);
    } finally {
      MessageAccess.get().detach(message);
    }
  }

  /**
   * Opens the listener: messages come with the next {@link Connection#process}, some with this
   * call.
   *
   * @param settings the gateway's, in addition to those it was made with
   * @throws OxliException when the gateway refuses
   */
  public final void open(String settings) {
    Objects.requireNonNull(settings, "settings");
    final long lsn = enter();
    try {
      scheme = null;
      Bindings.check("Listener.open", () -> OxliImpl.lsn_open(lsn, settings));
    } finally {
      connection.unlock();
    }
  }

  /**
   * Closes the listener, which can be opened again. May deliver messages.
   *
   * @throws OxliException when the gateway refuses
   */
  public final void shut() {
    final long lsn = enter();
    try {
      Bindings.check("Listener.shut", () -> OxliImpl.lsn_close(lsn));
    } finally {
      scheme = null;
      connection.unlock();
    }
  }

  /**
   * The gateway's number of the listener's state.
   *
   * @throws OxliException when the gateway refuses
   */
  public final int getState() {
    final long lsn = enter();
    try {
      final IntRef state = new IntRef();
      Results.check("Listener.getState", OxliImpl.lsn_getstate(lsn, state));
      return state.get();
    } finally {
      connection.unlock();
    }
  }

  /** The gateway's name of the listener; empty when it has none. */
  public final String getName() {
    final long lsn = enter();
    try {
      return OxliImpl.lsn_getname(lsn);
    } finally {
      connection.unlock();
    }
  }

  /**
   * The scheme of this opening, the same object until the listener is shut. Also called by native
   * code, for the first data message of an opening.
   *
   * @throws OxliException when the gateway has none
   */
  public Scheme getScheme() {
    // Called while the native code that owns the listener keeps it, and nothing here releases it.
    if (connection == null) return fetchScheme();
    connection.lock();
    try {
      if (handle == 0) throw unusable();
      return fetchScheme();
    } finally {
      connection.unlock();
    }
  }

  private Scheme fetchScheme() {
    if (scheme == null) {
      final Scheme fetched = new Scheme();
      Results.check("Listener.getScheme", OxliImpl.lsn_newscheme(handle, fetched));
      scheme = fetched;
    }
    return scheme;
  }

  /**
   * Releases the listener, delivering what its closing makes. Possible inside {@code onMessage}.
   *
   * @throws OxliException when the gateway reports an error; the listener is released all the same
   */
  @Override
  public final void close() {
    if (connection == null) return;
    connection.lock();
    try {
      if (handle == 0 || releasing) return;
      // Not 0 yet: what is delivered meanwhile may need the scheme.
      releasing = true;
      try {
        Bindings.check("Listener.close", () -> OxliImpl.lsn_destroy(handle));
      } finally {
        handle = 0;
        scheme = null;
        connection.forget(this);
      }
    } finally {
      connection.unlock();
    }
  }

  /** Takes the connection's lock and gives the handle. */
  private long enter() {
    if (connection == null) throw unusable();
    connection.lock();
    if (handle != 0 && !releasing) return handle;
    connection.unlock();
    throw unusable();
  }

  private static IllegalStateException unusable() {
    return new IllegalStateException("the listener has been released or belongs to native code");
  }
}
