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
 * Makes and posts messages. Made by {@link Connection#newPublisher}; owned by the connection. Owns
 * the messages made from it. Thread-safe: calls on one publisher exclude each other. They do not
 * wait for {@link Connection#process}.
 */
public final class Publisher implements AutoCloseable {
  private static final int KEY_INDEX = 0;
  private static final int KEY_ID = 1;
  private static final int KEY_NAME = 2;

  /**
   * Guards `deferred`, `depth`, `handle`, `scheme`, `posts` and changes of `outstanding`, except
   * that dump reads `posts` without it. GatewayLock states the lock order.
   */
  private final VisibleLock lock = new VisibleLock(false);

  private final Connection connection; // null if native code owns the publisher
  private final String settings;
  private final Origin origin = new Origin();
  private final MessageOwner owner = new Owner();
  private final Map<Message, Origin> outstanding = new ConcurrentHashMap<>(); // when each was made
  private final List<Runnable> deferred = new ArrayList<>(); // run after the outermost gateway call
  private int depth; // number of gateway calls in progress that read a message
  private long handle;
  private Scheme scheme;
  private long posts;
  private volatile String status = "being made"; // the latest known state, for dump

  Publisher(Connection connection, String settings) {
    this.connection = connection;
    this.settings = settings;
  }

  /**
   * Makes the object of a publisher that native code owns. Native code calls this constructor; the
   * handle that it passes is not used. The object owns nothing, {@link #close} does nothing, and
   * every other method that uses the gateway throws {@link IllegalStateException}.
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
   * Closes the publisher in the gateway only; it can be opened again. Its messages stay valid.
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
   * Returns the state: with the stand-in gateway, one of {@link State}.
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

  /** Reads the state for dump, unless the publisher is closed. REQUIRES: the lock is locked. */
  private void noteState() {
    final IntRef state = new IntRef();
    if (handle == 0 || OxliImpl.pub_getstate(handle, state) != ResultCode.OK) return;
    status = State.nameOf(state.get());
  }

  /**
   * Sets the status for dump. Called by {@link Connection#shut}, which closes publishers, too.
   */
  void noteShut() {
    status = State.nameOf(State.CLOSED);
  }

  /**
   * Returns an empty string: the gateway's library has no function for the name of a publisher.
   */
  public String getName() {
    lock.lock();
    try {
      return OxliImpl.pub_getname(requireOpen());
    } finally {
      lock.unlock();
    }
  }

  /**
   * Returns the scheme of this opening: the same object until the publisher is shut or opened
   * again.
   *
   * @throws OxliException if the gateway has no scheme, or if the scheme exceeds a limit
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
   * Makes an outgoing message by its name in the scheme. The message is valid until it or the
   * publisher is closed.
   *
   * @param <M> the class of the message, which the caller must know; if it differs, the caller's
   *     assignment throws {@link ClassCastException}
   * @throws OxliException if the gateway refuses
   */
  public <M extends Message> M newMessage(String name) {
    return make(KEY_NAME, Objects.requireNonNull(name, "name"));
  }

  /** Makes an outgoing message by its id in the scheme; see {@link #newMessage}. */
  public <M extends Message> M newMessageById(int id) {
    return make(KEY_ID, id);
  }

  /** Makes an outgoing message by its position in the scheme; see {@link #newMessage}. */
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
      // The message is refused: without a description no post can check its z-blocks.
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

  /**
   * Returns the description of a new message, or null. Finds it by the name in the message, or by
   * the key if the class of the message has no name.
   */
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
   * Posts a message: an outgoing message of this publisher, any number of times, or a delivered
   * message inside {@code onMessage}.
   *
   * <p>If this method throws, the message may have been posted. If an exception occurs while the
   * address, the reference to another message or the null map is read, the message is posted
   * without this field and without those after it in this list; the exception is thrown after the
   * post. If the virtual machine has no memory for one of them and throws no exception, the
   * message is not posted, and this method throws an {@link OxliException}.
   *
   * @param flags the gateway's flags; with the stand-in gateway, those of {@link PostFlag}
   * @throws OxliException if the gateway refuses
   * @throws IllegalArgumentException if the message belongs to another publisher
   * @throws IllegalStateException if the publisher is closed; or if the message, or the message
   *     that it refers to, is a copy, is closed, was delivered and is used after {@code onMessage}
   *     has returned or on another thread, or is an outgoing message with a z-block field that is
   *     not empty and was not written by {@link FieldDesc#setZBlock}
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

  /**
   * Called after a gateway call that read a message. After the outermost such call, runs the
   * deferred steps.
   */
  private void leave() {
    if (--depth > 0 || deferred.isEmpty()) return;
    final CloseErrors errors = new CloseErrors();
    while (!deferred.isEmpty()) errors.run(deferred.remove(0));
    errors.throwFirst();
  }

  /**
   * Runs a step that releases memory. During a gateway call on this thread, which may still read
   * the memory, defers the step until after the call.
   */
  private void release(Runnable step) {
    if (depth > 0) {
      deferred.add(step);
    } else {
      step.run();
    }
  }

  /**
   * Closes the messages of this publisher that are not closed, and releases the publisher. Waits
   * for calls on this publisher that are in progress on other threads. Frees the memory of the
   * payloads even while another thread writes into them. Inside a post of this publisher, the
   * memory is freed after that post.
   *
   * @throws OxliException the first error, to which later ones are added as suppressed exceptions;
   *     everything is closed nevertheless
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
          // The last step, because Connection.close waits only for publishers in its set.
          connection.forget(this);
        }
      }));
      errors.throwFirst();
    } finally {
      lock.unlock();
    }
  }

  Origin origin() {
    return origin;
  }

  /** Adds the publisher and its outgoing messages to the dump. */
  void dump(Dump dump) {
    dump.add(this + ": " + status + ", " + origin.age() + ", messages posted: " + posts, origin,
        () -> {
          dump.addOwner(lock, "a call");
          dump.add(messages());
        });
  }

  /** Adds a line for each group of outgoing messages that are not closed. */
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

  /** Returns "publisher" and the first 60 characters of the settings, without passwords. */
  @Override
  public String toString() {
    return Results.nameOf("publisher", settings);
  }

  /** Returns the handle. REQUIRES: the lock is locked. */
  private long requireOpen() {
    if (handle != 0) return handle;
    throw new IllegalStateException(this + (connection != null ? " is closed"
        : " belongs to native code: Java code cannot use it"));
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
    public byte[] dump(Message message, long schemeRef) {
      lock.lock();
      try {
        MessageAccess.requireReadableByGateway(message);
        ++depth;
        try {
          return OxliImpl.msg_dump(message, schemeRef);
        } finally {
          leave();
        }
      } finally {
        lock.unlock();
      }
    }
  }
}
