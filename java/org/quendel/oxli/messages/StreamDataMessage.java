package org.quendel.oxli.messages;

import java.nio.ByteBuffer;
import java.util.Arrays;
import org.quendel.oxli.Scheme;

/** A row of a replicated stream. What is set on an outgoing one takes effect with the next post. */
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

  /** Returns the application's number. */
  public long getUserId() {
    requireUsable();
    return userId;
  }

  /** Sets the application's number. */
  public void setUserId(long newUserId) {
    requireUsableOrFilling();
    userId = newUserId;
  }

  /**
   * Returns whether a field is null; false for every field of a row without a null map.
   *
   * @param field position of the field in the message's description
   */
  public boolean isNull(int field) {
    requireUsable();
    return nulls != null && nulls[field];
  }

  /**
   * Marks a field of an outgoing row as null or not.
   *
   * @param field position of the field in the message's description
   * @throws IllegalStateException if the row has no null map or was delivered
   */
  public void setNull(int field, boolean isNull) {
    requireUsable();
    requireWritable();
    if (nulls == null) throw new IllegalStateException(this + " has no null map");
    nulls[field] = isNull;
  }

  /**
   * Returns the null map itself, a flag for each field, or null. The one of a delivered row is used
   * again for the next row: take a {@link #copy} to keep it.
   */
  public boolean[] getNulls() {
    requireUsableOrFilling();
    return nulls;
  }

  /**
   * Makes the array, not a copy of it, the null map of an outgoing row. A post refuses an array
   * that has fewer flags than the row has fields.
   *
   * @throws IllegalStateException if the row was delivered
   */
  public void setNulls(boolean[] newNulls) {
    requireUsableOrFilling();
    // Native code fills the array that it finds here for the next row.
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
    if (!isReused() || nulls == null) return;
    // Native code fills the array that it finds, and leaves it alone for a row without null map.
    if (isAmbiguous()) {
      nulls = null; // the next row may have another number of fields
    } else {
      Arrays.fill(nulls, false);
    }
  }
}
