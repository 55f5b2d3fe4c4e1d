package org.quendel.oxli;

import java.util.ArrayList;
import java.util.Collections;
import java.util.IdentityHashMap;
import java.util.Objects;
import java.util.Set;
import org.quendel.oxli.impl.IntRef;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.MessageOwner;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.DataMessage;
import org.quendel.oxli.messages.Message;

/**
 * Makes and posts messages. Made by {@link Connection#newPublisher}; owns the messages made from
 * it.
 *
 * <p>One lock is held by every call: a post waits for another post, not for {@link
 * Connection#process}.
 */
public final class Publisher implements AutoCloseable {
  private static final int KEY_INDEX = 0;
  private static final int KEY_ID = 1;
  private static final int KEY_NAME = 2;

  /** Taken after the connection's lock when both are needed. What follows is guarded by it. */
  private final Object lock = new Object();

  private final Connection connection;
  private final MessageOwner owner = new Owner();
  private final Set<Message> outstanding = Collections.newSetFromMap(new IdentityHashMap<>());
  private long handle;
  private Scheme scheme;

  Publisher(Connection connection) {
    this.connection = connection;
  }

  /**
   * Called by native code for a publisher that other native code owns. The object stands for it: it
   * owns nothing, {@link #close} does nothing and every other call throws {@link
   * IllegalStateException}.
   */
  Publisher(long handle) {
    this((Connection) null);
  }

  void create(long conn, String settings) {
    synchronized (lock) {
      final ObjRef ref = new ObjRef();
      Results.check("Connection.newPublisher", OxliImpl.pub_new(conn, settings, ref, this));
      handle = ref.getRef();
    }
  }

  /**
   * Opens the publisher.
   *
   * @param settings the gateway's, in addition to those it was made with
   * @throws OxliException when the gateway refuses
   */
  public void open(String settings) {
    Objects.requireNonNull(settings, "settings");
    synchronized (lock) {
      scheme = null;
      Results.check("Publisher.open", OxliImpl.pub_open(alive(), settings));
    }
  }

  /**
   * Closes the publisher, which can be opened again. Its messages stay.
   *
   * @throws OxliException when the gateway refuses
   */
  public void shut() {
    synchronized (lock) {
      scheme = null;
      Results.check("Publisher.shut", OxliImpl.pub_close(alive()));
    }
  }

  /**
   * The gateway's number of the publisher's state.
   *
   * @throws OxliException when the gateway refuses
   */
  public int getState() {
    synchronized (lock) {
      final IntRef state = new IntRef();
      Results.check("Publisher.getState", OxliImpl.pub_getstate(alive(), state));
      return state.get();
    }
  }

  /** The gateway's name of the publisher; empty when it has none. */
  public String getName() {
    synchronized (lock) {
      return OxliImpl.pub_getname(alive());
    }
  }

  /**
   * The scheme of this opening, the same object until the publisher is shut.
   *
   * @throws OxliException when the gateway has none
   */
  public Scheme getScheme() {
    synchronized (lock) {
      final long pub = alive();
      if (scheme == null) {
        final Scheme fetched = new Scheme();
        Results.check("Publisher.getScheme", OxliImpl.pub_newscheme(pub, fetched));
        scheme = fetched;
      }
      return scheme;
    }
  }

  /**
   * Makes a message by its name in the scheme. It lives until it is closed, with the publisher at
   * the latest.
   *
   * @param <M> the class the caller knows the message to be of; another makes the caller's
   *     assignment throw {@link ClassCastException}
   * @throws OxliException when the gateway refuses
   */
  public <M extends Message> M newMessage(String name) {
    return make(KEY_NAME, Objects.requireNonNull(name, "name"));
  }

  /** Makes a message by its id in the scheme; see {@link #newMessage}. */
  public <M extends Message> M newMessageById(int id) {
    return make(KEY_ID, id);
  }

  /** Makes a message by its position in the scheme; see {@link #newMessage}. */
  public <M extends Message> M newMessageByIndex(int index) {
    return make(KEY_INDEX, index);
  }

  @SuppressWarnings("unchecked")
  private <M extends Message> M make(int keyType, Object key) {
    synchronized (lock) {
      final Object[] made = new Object[1];
      Results.check("Publisher.newMessage",
          OxliImpl.pub_msgnew(alive(), keyType, key, getScheme(), made));
      final Message message = (Message) made[0];
      MessageAccess.get().adopt(message, owner);
      outstanding.add(message);
      return (M) message;
    }
  }

  /** Posts with no flags; see {@link #post(Message, int)}. */
  public void post(Message message) {
    post(message, 0);
  }

  /**
   * Posts a message: one of this publisher's, as often as wanted, or a delivered one from inside
   * {@code onMessage}.
   *
   * @param flags the gateway's
   * @throws OxliException when the gateway refuses
   * @throws IllegalArgumentException when the message is another publisher's
   * @throws IllegalStateException when the message is a copy, has ended or has been closed, refers to
   *     one of which that is true, or has a z-block that {@link FieldDesc#setZBlock} did not set
   */
  public void post(Message message, int flags) {
    synchronized (lock) {
      final long pub = alive();
      final MessageOwner messageOwner = MessageAccess.get().ownerOf(message);
      if (messageOwner != null && messageOwner != owner) {
        throw new IllegalArgumentException("the message is another publisher's");
      }
      if (!MessageAccess.get().isAttached(message)) {
        throw new IllegalStateException("the message is a copy, has ended or has been closed");
      }
      checkBlocks(message);
      if (message instanceof DataMessage) checkReference((DataMessage) message);
      Results.check("Publisher.post", OxliImpl.pub_post(pub, message, flags));
    }
  }

  private static void checkReference(DataMessage message) {
    if (!MessageAccess.get().isReferenceAlive(message)) {
      throw new IllegalStateException("the message refers to a copy or to one that has ended");
    }
    if (message.getRefMessage() != null) checkBlocks(message.getRefMessage());
  }

  /** The gateway follows what stands in a z-block field, whoever wrote it. */
  private static void checkBlocks(Message message) {
    final MessageDesc desc = MessageAccess.get().descOf(message);
    if (message.isDelivered() || desc == null) return;
    for (int offset : desc.zblocks()) {
      if (!MessageAccess.get().isKept(message, offset)) {
        throw new IllegalStateException("the z-block at " + offset + " has been overwritten");
      }
    }
  }

  /**
   * Closes the messages made from it that are not closed, and releases the publisher. Waits for
   * calls in progress on other threads, but not for a thread that fills a message: its memory ends.
   *
   * @throws OxliException the first error reported, with others suppressed; all is released
   */
  @Override
  public void close() {
    synchronized (lock) {
      if (handle == 0) return;
      final long pub = handle;
      final Releases releases = new Releases();
      for (Message message : new ArrayList<>(outstanding)) releases.run(message::close);
      handle = 0;
      scheme = null;
      releases.run(() -> Results.check("Publisher.close", OxliImpl.pub_destroy(pub)));
      // Last: a connection that is released waits for the publishers it knows.
      connection.forget(this);
      releases.finish();
    }
  }

  /** REQUIRES: the lock. */
  private long alive() {
    if (handle != 0) return handle;
    throw new IllegalStateException("the publisher has been released or belongs to native code");
  }

  private final class Owner implements MessageOwner {
    @Override
    public void dispose(Message message) {
      synchronized (lock) {
        if (!outstanding.remove(message)) return;
        final long ref = MessageAccess.get().detach(message);
        Results.check("Message.close", OxliImpl.pub_msgdispose(handle, ref, message));
      }
    }

    @Override
    public byte[] dump(Message message, long argument) {
      synchronized (lock) {
        if (!outstanding.contains(message)) {
          throw new IllegalStateException("the message has been closed");
        }
        return OxliImpl.msg_dump(message, argument);
      }
    }
  }
}
