package org.quendel.oxli.messages;

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

  /** The row's revision. */
  public long getRev() {
    return rev;
  }

  /** Sets the row's revision. */
  public void setRev(long newRev) {
    rev = newRev;
  }

  /** The application's number. */
  public long getUserId() {
    return userId;
  }

  /** Sets the application's number. */
  public void setUserId(long newUserId) {
    userId = newUserId;
  }

  /**
   * Whether a field is null; false for every field of a row without a null map.
   *
   * @param field position of the field in the message's description
   */
  public boolean isNull(int field) {
    return nulls != null && nulls[field];
  }

  /**
   * Marks a field of an outgoing row as null or not.
   *
   * @param field position of the field in the message's description
   * @throws IllegalStateException when the row has no null map
   */
  public void setNull(int field, boolean isNull) {
    if (nulls == null) throw new IllegalStateException("the row has no null map");
    nulls[field] = isNull;
  }

  /** The null map itself, a flag for each field, or null; it ends with the message. */
  public boolean[] getNulls() {
    return nulls;
  }

  /**
   * Makes the array, not a copy of it, the null map of an outgoing row; a post refuses one that is
   * too short. An array given to a delivered row would be written by the next one.
   */
  public void setNulls(boolean[] newNulls) {
    nulls = newNulls;
  }

  @Override
  public StreamDataMessage copy() {
    final StreamDataMessage copy = (StreamDataMessage) super.copy();
    if (nulls != null) copy.nulls = nulls.clone();
    return copy;
  }

  @Override
  void forgetRecord() {
    super.forgetRecord();
    // Native code fills the array it finds, and leaves it alone when a row has no null map. What it
    // finds must fit: an object for rows of any description starts without one.
    if (isOutgoing() || isUnkeyed()) {
      nulls = null;
    } else if (nulls != null) {
      Arrays.fill(nulls, false);
    }
  }
}
