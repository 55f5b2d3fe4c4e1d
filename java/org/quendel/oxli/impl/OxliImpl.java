package org.quendel.oxli.impl;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import org.quendel.oxli.Connection;
import org.quendel.oxli.IExitEventHandler;
import org.quendel.oxli.ISubscriber;
import org.quendel.oxli.Listener;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.Scheme;
import org.quendel.oxli.ZBlock;
import org.quendel.oxli.messages.Message;

/**
 * Declares the natives. Handles are not checked: they must be valid. {@link #env_open} and {@link
 * #env_close} must not overlap any other native except those declared before them. An {@code int}
 * result is a {@link org.quendel.oxli.ResultCode} unless stated otherwise; if Java code that the
 * native calls throws, the native throws this exception instead.
 *
 * <p>A handle is the address of a binding record; the handle of a publisher is the address of the
 * gateway's publisher. A native that makes an object stores its handle in {@code ref}, and
 * references its Java arguments until the object is released. A native that may deliver calls the
 * subscriber on the calling thread.
 */
public final class OxliImpl {
  static {
    NativeLibrary.load();
  }

  private OxliImpl() {}

  /**
   * Returns the value at the start of the buffer as a string, or null if it fails. {@code name} is
   * the type of the value.
   */
  public static native String getstr(String name, ByteBuffer data);

  /** Returns the gateway's string for a result code. */
  public static native String err_getstr(int code);

  /** Writes a line to the gateway's log. */
  public static native int log_debugstr(String line);

  /** Writes a line to the gateway's log. */
  public static native int log_tracestr(String line);

  /** Writes a line to the gateway's log. */
  public static native int log_infostr(String line);

  /** Writes a line to the gateway's log. */
  public static native int log_errorstr(String line);

  /** Returns the decimal at index 0 of the buffer, or null if the gateway cannot decode it. */
  public static native BigDecimal bcd_get(ByteBuffer value);

  /** Not implemented: always throws. */
  public static native String scheme_getstr();

  /** Makes the class cache and opens the gateway's environment. */
  public static native int env_open(String settings);

  /**
   * Closes the gateway's environment and releases the class cache. Call it also after an {@link
   * #env_open} that failed, unless an environment was open before.
   */
  public static native int env_close();

  /** Replaces the exit handler; null removes it. Works also while the environment is closed. */
  public static native int env_register_exithandler(IExitEventHandler handler);

  /** Makes a connection. */
  public static native int conn_new(String settings, ObjRef ref, Connection connection);

  /** Opens a connection. May deliver. */
  public static native int conn_open(long conn, String settings);

  /** Closes a connection, which can be opened again. May deliver. */
  public static native int conn_close(long conn);

  /** Delivers queued messages. Waits at most {@code timeout} milliseconds for the first one. */
  public static native int conn_process(long conn, int timeout);

  /** Stores the gateway's state of the connection. */
  public static native int conn_getstate(long conn, IntRef state);

  /** Returns an empty string. */
  public static native String conn_getname(long conn);

  /**
   * Releases a connection. The handle is stale after the call, whatever the result. May deliver.
   */
  public static native int conn_destroy(long conn);

  /** Makes a listener. */
  public static native int lsn_new(long conn, String settings, ISubscriber subscriber, ObjRef ref,
      Connection connection, Listener listener);

  /** Opens a listener. Releases the message objects of an earlier opening. May deliver. */
  public static native int lsn_open(long lsn, String settings);

  /** Closes a listener, which can be opened again. May deliver. */
  public static native int lsn_close(long lsn);

  /** Stores the gateway's state of the listener. */
  public static native int lsn_getstate(long lsn, IntRef state);

  /** Stores the address of the listener's scheme description. */
  public static native int lsn_getscheme(long lsn, ObjRef ref);

  /** Fills the scheme from the listener's description. */
  public static native int lsn_newscheme(long lsn, Scheme scheme);

  /** Returns an empty string. */
  public static native String lsn_getname(long lsn);

  /** Releases a listener. The handle is stale after the call, whatever the result. May deliver. */
  public static native int lsn_destroy(long lsn);

  /** Makes a publisher. */
  public static native int pub_new(long conn, String settings, ObjRef ref, Publisher publisher);

  /** Releases a publisher. The handle is stale after the call, whatever the result. */
  public static native int pub_destroy(long pub);

  /** Opens a publisher. */
  public static native int pub_open(long pub, String settings);

  /** Closes a publisher, which can be opened again. */
  public static native int pub_close(long pub);

  /** Stores the gateway's state of the publisher. */
  public static native int pub_getstate(long pub, IntRef state);

  /** Stores the address of the publisher's scheme description. */
  public static native int pub_getscheme(long pub, ObjRef ref);

  /** Fills the scheme from the publisher's description. */
  public static native int pub_newscheme(long pub, Scheme scheme);

  /** Returns an empty string. */
  public static native String pub_getname(long pub);

  /**
   * Makes an outgoing message and stores its object in {@code out[0]}.
   *
   * @param keyType 0: {@code key} is the {@link Integer} index, 1: the {@link Integer} id, 2: the
   *     {@link String} name
   */
  public static native int pub_msgnew(long pub, int keyType, Object key, Scheme scheme,
      Object[] out);

  /** Posts a message that has a record. */
  public static native int pub_post(long pub, Message message, int flags);

  /** Frees the record at {@code ref}, which {@link #pub_msgnew} made for the message. */
  public static native int pub_msgdispose(long pub, long ref, Message message);

  /**
   * Returns the gateway's dump of a message in UTF-8, or null if it fails.
   *
   * @param schemeRef the address of the gateway's scheme description, or 0
   */
  public static native byte[] msg_dump(Message message, long schemeRef);

  /** Makes a binding and a descriptor of the buffer's memory, from index 0 to its capacity. */
  public static native int zblock_new(NativeRef ref, ByteBuffer buffer, ZBlock zblock);

  /**
   * Binds to the descriptor at the offset of a payload, and passes a buffer over its bytes to
   * {@code setData} of the z-block. Passes null if the descriptor is not inside the payload, or if
   * no buffer can be made over the bytes. If {@code ref} contains the handle of a binding, moves
   * this binding; otherwise makes a binding and stores its handle in {@code ref}.
   */
  public static native void zblock_wrap(ByteBuffer payload, NativeRef ref, ZBlock zblock,
      long offset);

  /** Copies the descriptor to the offset of a payload. Returns 0, or -1 if it does not fit. */
  public static native int zblock_unwrap(ByteBuffer payload, long handle, long offset);

  /** Makes the descriptor of a binding, even one in a payload, describe the buffer's memory. */
  public static native int zblock_rebind(ByteBuffer buffer, long handle);

  /** Releases a binding. Does nothing if the handle is 0. */
  public static native int zblock_destroy(long handle);
}
