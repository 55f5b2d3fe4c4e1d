package org.quendel.oxli.messages;

import java.util.NoSuchElementException;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.Scheme;

/** A message that a scheme describes. */
public abstract class AbstractDataMessage extends Message {
  private static final int NONE = -1;

  private final Scheme scheme;
  private int msgIndex;
  private int msgId;
  private String msgName;
  private MessageDesc alternative; // what Scheme.findAlternative returned
  private boolean isAlternativeKnown;

  AbstractDataMessage(int type, int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(type);
    this.msgId = msgId;
    this.msgIndex = msgIndex;
    this.msgName = msgName;
    this.scheme = scheme;
  }

  /**
   * Returns the position of the message's description in the scheme, or -1 if it has none.
   *
   * <p>A delivered object is used again for each message of the same index, or, without an index,
   * of the same id, or, without both, of any other without both; an index and an id that are the
   * same number count as the same. Index, id and name are those of the first message in the object.
   */
  public final int getMsgIndex() {
    requireUsable();
    return msgIndex;
  }

  /** Returns the message's id in the scheme, unsigned, or -1; see {@link #getMsgIndex}. */
  public final int getMsgId() {
    requireUsable();
    return msgId;
  }

  /** Returns the message's name in the scheme; see {@link #getMsgIndex}. */
  public final String getMsgName() {
    requireUsable();
    return msgName;
  }

  /** Returns the scheme of the opening that the message came with, or null. Always possible. */
  public final Scheme getScheme() {
    return scheme;
  }

  /**
   * Returns the description of the message.
   *
   * @throws IllegalStateException if the message was delivered and may be of one of two
   *     descriptions, because messages of both are delivered in the same object; see {@link
   *     Scheme#findAlternative}. Also if the message may not be used here and now.
   * @throws NoSuchElementException if there is no scheme, no such message in it, or the message was
   *     delivered with neither index nor id. Also for a copy of a message whose description was
   *     refused.
   */
  public final MessageDesc getDesc() {
    requireUsable();
    final MessageDesc desc = findDesc();
    if (desc != null) return desc;
    if (!isDelivered() || alternative() == null) {
      throw new NoSuchElementException("no description of " + this + " is known");
    }
    throw new IllegalStateException("the message is of " + msgName + " or of "
        + alternative.getName() + ": both are delivered in the same object, because the id of one"
        + " is the index or the id of the other");
  }

  @Override
  protected final MessageDesc findDesc() {
    final MessageDesc known = super.findDesc();
    if (known != null || scheme == null || !isDelivered() || isUnkeyed()) return known;
    final MessageDesc desc = scheme.findMessage(this);
    if (alternative() == null) setDesc(desc); // of every message in this object
    return desc;
  }

  @Override
  public AbstractDataMessage copy() {
    requireUsable();
    final MessageDesc desc = findDesc(); // of the original, because it may have to read the record
    final AbstractDataMessage copy = (AbstractDataMessage) super.copy();
    copy.setDesc(desc);
    return copy;
  }

  /** Whether native code may use the object for messages of different descriptions. */
  final boolean isAmbiguous() {
    return isUnkeyed() || alternative() != null;
  }

  private boolean isUnkeyed() {
    return msgIndex == NONE && msgId == NONE;
  }

  private MessageDesc alternative() {
    if (!isAlternativeKnown) {
      alternative = scheme == null ? null : scheme.findAlternative(msgIndex, msgId, msgName);
      isAlternativeKnown = true;
    }
    return alternative;
  }

  @Override
  String label() {
    return ' ' + msgName;
  }

  void setMsgIndex(int index) {
    msgIndex = index;
  }

  void setMsgId(int id) {
    msgId = id;
  }

  /** Called by native code last of the three. */
  void setMsgName(String name) {
    msgName = name;
    setDesc(null);
    isAlternativeKnown = false;
  }
}
