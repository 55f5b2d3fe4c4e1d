package org.quendel.oxli;

import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.concurrent.ConcurrentHashMap;
import org.quendel.oxli.impl.IntRef;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.MessageOwner;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.AbstractDataMessage;
import org.quendel.oxli.messages.Message;

/**
 * Makes and posts messages. Made by {@link Connection#newPublisher}; owns the messages made from
 * it. Thread-safe: each call waits for another one on the publisher, but not for {@link
 * Connection#process}.
 */
public final class Publisher implements AutoCloseable {
  private static final int KEY_INDEX = 0;
  private static final int KEY_ID = 1;
  private static final int KEY_NAME = 2;

  /**
   * Guards what follows; dump reads some of it without. Locked after the connection's locks; see
   * GatewayLock.
   */
  private final VisibleLock lock = new VisibleLock(false);

  private final Connection connection; // null if native code owns the publisher
  private final String settings;
  private final Origin origin = new Origin();
  private final MessageOwner owner = new Owner();
  private final Map<Message, Origin> outstanding = new ConcurrentHashMap<>(); // by identity
  private final List<Runnable> deferred = new ArrayList<>(); // releases after the call in progress
  private int depth; // number of gateway calls in progress that read a message
  private long handle;
  private Scheme scheme;
  private long posts;
  private volatile String status = "being made"; // the state when it was last seen

  Publisher(Connection connection, String settings) {
    this.connection = connection;
    this.settings = settings;
  }

  /**
   * Called by native code for a publisher that other native code owns. The object stands for it: it
   * owns nothing, {@link #close} does nothing and every other call throws {@link
   * IllegalStateException}.
   */
  Publisher(long handle) {
    this(null, "of native code");
  }

  void create(long conn) {
    lock.lock();
    try {
      final ObjRef ref = new ObjRef();
      Results.check("Connection.newPublisher", this, OxliImpl.pub_new(conn, settings, ref, this));
      handle = ref.getRef();
      noteState();
    } finally {
      lock.unlock();
    }
  }

  /**
   * Opens the publisher.
   *
   * @param openSettings the gateway's settings, in addition to those that the publisher was made
   *     with
   * @throws OxliException if the gateway refuses
   */
  public void open(String openSettings) {
    Objects.requireNonNull(openSettings, "openSettings");
    lock.lock();
    try {
      scheme = null;
      Results.check("Publisher.open", this, OxliImpl.pub_open(requireOpen(), openSettings));
    } finally {
      noteState();
      lock.unlock();
    }
  }

  /**
   * Closes the publisher on the gateway's side; it can be opened again. Its messages stay.
   *
   * @throws OxliException if the gateway refuses
   */
  public void shut() {
    lock.lock();
    try {
      scheme = null;
      Results.check("Publisher.shut", this, OxliImpl.pub_close(requireOpen()));
    } finally {
      noteState();
      lock.unlock();
    }
  }

  /**
   * Returns the state: one of {@link State} with the stand-in gateway.
   *
   * @throws OxliException if the gateway refuses
   */
  public int getState() {
    lock.lock();
    try {
      final IntRef state = new IntRef();
      Results.check("Publisher.getState", this, OxliImpl.pub_getstate(requireOpen(), state));
      status = State.nameOf(state.get());
      return state.get();
    } finally {
      lock.unlock();
    }
  }

  /** Sees the state for dump, unless the publisher is closed. REQUIRES: the lock. */
  private void noteState() {
    final IntRef state = new IntRef();
    if (handle == 0 || OxliImpl.pub_getstate(handle, state) != ResultCode.OK) return;
    status = State.nameOf(state.get());
  }

  /** Called when the connection was shut, which shuts its publishers. */
  void noteShut() {
    status = State.nameOf(State.CLOSED);
  }

  /** Returns the publisher's name in the gateway, empty if it has none. */
  public String getName() {
    lock.lock();
    try {
      return OxliImpl.pub_getname(requireOpen());
    } finally {
      lock.unlock();
    }
  }

  /**
   * Returns the scheme of this opening, the same object until the publisher is shut.
   *
   * @throws OxliException if the gateway has none
   */
  public Scheme getScheme() {
    lock.lock();
    try {
      final long pub = requireOpen();
      if (scheme == null) {
        final Scheme fetched = new Scheme();
        Results.check("Publisher.getScheme", this, OxliImpl.pub_newscheme(pub, fetched));
        fetched.requireComplete("Publisher.getScheme", this);
        scheme = fetched;
      }
      return scheme;
    } finally {
      lock.unlock();
    }
  }

  /**
   * Makes a message by its name in the scheme. It lives until it is closed, or the publisher is.
   *
   * @param <M> the class that the caller knows the message to be of; of another class, the caller's
   *     assignment throws {@link ClassCastException}
   * @throws OxliException if the gateway refuses
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
    lock.lock();
    try {
      final Object[] made = new Object[1];
      final int code = OxliImpl.pub_msgnew(requireOpen(), keyType, key, getScheme(), made);
      if (code != ResultCode.OK) {
        throw Results.failure("Publisher.newMessage", "message " + key + " of " + this, code);
      }
      final Message message = (Message) made[0];
      final MessageDesc desc = describe(message, keyType, key);
      MessageAccess.adopt(message, owner, desc, desc == null ? null : desc.zblockFields());
      outstanding.put(message, new Origin());
      // Without a description, nothing checks the z-blocks that the application writes.
      if (desc == null) {
        message.close();
        throw Results.failure(
            "Publisher.newMessage", "message " + key + " of " + this, ResultCode.INTERNAL);
      }
      return (M) message;
    } finally {
      lock.unlock();
    }
  }

  /** Returns the description that the message was made from; only some classes have its name. */
  private MessageDesc describe(Message message, int keyType, Object key) {
    if (message instanceof AbstractDataMessage) {
      return scheme.findMessage(((AbstractDataMessage) message).getMsgName());
    }
    if (keyType == KEY_NAME) return scheme.findMessage((String) key);
    final int number = (Integer) key;
    return keyType == KEY_INDEX ? scheme.findMessageByIndex(number)
        : scheme.findMessageById(number);
  }

  /** Posts without flags; see {@link #post(Message, int)}. */
  public void post(Message message) {
    post(message, 0);
  }

  /**
   * Posts a message: an outgoing one of this publisher, as often as wanted, or a delivered one
   * inside {@code onMessage}.
   *
   * <p>An exception does not always mean that nothing was sent: if there is no memory for passing
   * the address, the reference or the null map to the gateway, the message is posted without it,
   * and then the exception is thrown.
   *
   * @param flags the gateway's: of the stand-in gateway, {@link PostFlag}
   * @throws OxliException if the gateway refuses
   * @throws IllegalArgumentException if the message is another publisher's
   * @throws IllegalStateException if the message is a copy, is closed, or was delivered and may not
   *     be used here and now; if it refers to such a message; if it, or the message that it refers
   *     to, has a z-block field that something else than {@link FieldDesc#setZBlock} wrote
   */
  public void post(Message message, int flags) {
    lock.lock();
    try {
      final long pub = requireOpen();
      final MessageOwner messageOwner = MessageAccess.ownerOf(message);
      if (messageOwner != null && messageOwner != owner) {
        throw new IllegalArgumentException(message + " is not a message of " + this);
      }
      MessageAccess.requireReadableByGateway(message);
      ++depth;
      final int code;
      try {
        code = OxliImpl.pub_post(pub, message, flags);
      } finally {
        leave();
      }
      if (code != ResultCode.OK) {
        throw Results.failure("Publisher.post", message + " on " + this, code);
      }
      ++posts;
    } finally {
      lock.unlock();
    }
  }

  /** Ends a gateway call that read a message; the outermost one runs what waited for it. */
  private void leave() {
    if (--depth > 0 || deferred.isEmpty()) return;
    final CloseErrors errors = new CloseErrors();
    while (!deferred.isEmpty()) errors.run(deferred.remove(0));
    errors.throwFirst();
  }

  /** Runs a release of what a gateway call in progress on this thread may still read, after it. */
  private void release(Runnable step) {
    if (depth > 0) {
      deferred.add(step);
    } else {
      step.run();
    }
  }

  /**
   * Closes the messages made from it that are not closed, and releases the publisher. Waits for
   * calls in progress on other threads, but not for a thread that writes into a message, whose
   * memory is freed. Inside a post of this publisher the release waits for the end of that post.
   *
   * @throws OxliException the first error reported, with others suppressed; all is closed
   */
  @Override
  public void close() {
    lock.lock();
    try {
      if (handle == 0) return;
      final long pub = handle;
      final CloseErrors errors = new CloseErrors();
      for (Message message : outstanding.keySet()) errors.run(message::close);
      handle = 0;
      status = "closing";
      scheme = null;
      errors.run(() -> release(() -> {
        try {
          Results.check("Publisher.close", this, OxliImpl.pub_destroy(pub));
        } finally {
          // Last: a connection that closes waits for the publishers that it knows.
          connection.forget(this);
        }
      }));
      errors.throwFirst();
    } finally {
      lock.unlock();
    }
  }

  /** Returns when it was made. */
  Origin origin() {
    return origin;
  }

  /** Adds the publisher and its messages. */
  void dump(Dump dump) {
    dump.add(this + ": " + status + ", " + origin.age() + ", messages posted: " + posts, origin,
        () -> {
          dump.addOwner(lock, "a call");
          dump.add(messages());
        });
  }

  /** Adds lines for the messages that are not closed. */
  void addUnclosed(List<String> lines) {
    for (Dump.Group group : messages()) {
      lines.add(group + " (" + this + ')' + group.oldest.place());
    }
  }

  private List<Dump.Group> messages() {
    final Dump.Groups groups = new Dump.Groups();
    outstanding.forEach((message, made) -> {
      final MessageDesc desc = MessageAccess.descOf(message);
      groups.add("message " + (desc != null ? desc.getName()
          : "of type 0x" + Integer.toHexString(message.getType())), made);
    });
    return groups.inOrder();
  }

  /** Returns whether the calling thread is inside a call on this publisher. */
  boolean isEnteredByCaller() {
    return lock.isHeldByCurrentThread();
  }

  /** Returns the beginning of the settings. */
  @Override
  public String toString() {
    return Results.nameOf("publisher", settings);
  }

  /** Returns the handle. REQUIRES: the lock. */
  private long requireOpen() {
    if (handle != 0) return handle;
    throw new IllegalStateException(this + (connection == null ? " cannot be used" : " is closed"));
  }

  private final class Owner implements MessageOwner {
    @Override
    public void dispose(Message message) {
      lock.lock();
      try {
        if (outstanding.remove(message) == null) return;
        final long pub = handle;
        final long ref = MessageAccess.detach(message);
        release(() -> Results.check("Message.close", message + " of " + Publisher.this,
            OxliImpl.pub_msgdispose(pub, ref, message)));
      } finally {
        lock.unlock();
      }
    }

    @Override
    public byte[] dump(Message message, long argument) {
      lock.lock();
      try {
        MessageAccess.requireReadableByGateway(message);
        ++depth;
        try {
          return OxliImpl.msg_dump(message, argument);
        } finally {
          leave();
        }
      } finally {
        lock.unlock();
      }
    }
  }
}
