package org.quendel.oxli.messages;

import java.nio.ByteBuffer;
import java.util.Arrays;
import org.quendel.oxli.Scheme;

/**
 * A row of a replica. Values set in an outgoing row are passed to the gateway by the next post.
 */
public final class StreamDataMessage extends AbstractDataMessage {
  private long rev;
  private long userId;
  private boolean[] nulls;

  StreamDataMessage(int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(MessageType.STREAM_DATA, msgId, msgIndex, msgName, scheme);
  }

  /** Returns the row's revision. */
  public long getRev() {
    requireUsable();
    return rev;
  }

  /** Sets the row's revision. */
  public void setRev(long newRev) {
    requireUsableOrFilling();
    rev = newRev;
  }

  /** Returns the user id: a number that the application defines. */
  public long getUserId() {
    requireUsable();
    return userId;
  }

  /** Sets the user id. */
  public void setUserId(long newUserId) {
    requireUsableOrFilling();
    userId = newUserId;
  }

  /**
   * Returns whether a field is null. Returns false if the row has no null map.
   *
   * @param field the position of the field in the message's description
   */
  public boolean isNull(int field) {
    requireUsable();
    return nulls != null && nulls[field];
  }

  /**
   * Marks a field of an outgoing row as null or not.
   *
   * @param field the position of the field in the message's description
   * @throws IllegalStateException if the row has no null map or was delivered
   */
  public void setNull(int field, boolean isNull) {
    requireUsable();
    requireWritable();
    if (nulls == null) throw new IllegalStateException(this + " has no null map");
    nulls[field] = isNull;
  }

  /**
   * Returns the null map itself, with one flag for each field. If the row has no null map, returns
   * null, or an array of false if an earlier row in the same object had a null map. The next row in
   * the same object overwrites the null map of a delivered row: make a {@link #copy} of the row to
   * use it later.
   */
  public boolean[] getNulls() {
    requireUsableOrFilling();
    return nulls;
  }

  /**
   * Sets the null map of an outgoing row to the array itself. A post throws if the array has fewer
   * flags than the row has fields.
   *
   * @throws IllegalStateException if the row was delivered
   */
  public void setNulls(boolean[] newNulls) {
    requireUsableOrFilling();
    // Native code writes the flags of the next row into this array.
    if (isReused() && isUsable()) requireWritable();
    nulls = newNulls;
  }

  @Override
  public StreamDataMessage copy() {
    final StreamDataMessage copy = (StreamDataMessage) super.copy();
    if (nulls != null) copy.nulls = nulls.clone();
    return copy;
  }

  @Override
  String contents() {
    return ", revision " + rev + ", user id " + userId;
  }

  @Override
  protected void forgetRecord() {
    super.forgetRecord();
    if (!isReused()) nulls = null;
  }

  @Override
  protected void setData(ByteBuffer payload) {
    super.setData(payload);
    if (!isDelivered() || nulls == null) return;
    // Native code writes into the array that it finds, but not for a row without a null map.
    if (isAmbiguous()) {
      nulls = null; // the next row may have another number of fields
    } else {
      Arrays.fill(nulls, false);
    }
  }
}
