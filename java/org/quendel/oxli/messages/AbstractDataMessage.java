package org.quendel.oxli.messages;

import java.util.NoSuchElementException;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.Scheme;

/** A message that has a description in a scheme. */
public abstract class AbstractDataMessage extends Message {
  private static final int NONE = -1;

  private final Scheme scheme;
  private int msgIndex;
  private int msgId;
  private String msgName;
  private MessageDesc alternative; // the result of Scheme.findAlternative
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
   * <p>A listener delivers all messages with the same class and key in the same object. The key of
   * a message is its index, or its id if it has no index; an index and an id that are equal are the
   * same key. The messages of a class with neither index nor id are delivered in one object. All
   * {@link ParseErrorMessage}s are delivered in one object of their own, whatever their key. The
   * index, the id and the name are those of the first message that was delivered in the object; in
   * a {@link ParseErrorMessage}, those of the message itself.
   */
  public final int getMsgIndex() {
    requireUsable();
    return msgIndex;
  }

  /**
   * Returns the message's id in the scheme, unsigned, or -1 if it has none; see {@link
   * #getMsgIndex}.
   */
  public final int getMsgId() {
    requireUsable();
    return msgId;
  }

  /** Returns the message's name in the scheme; see {@link #getMsgIndex}. */
  public final String getMsgName() {
    requireUsable();
    return msgName;
  }

  /** Returns the scheme of the message's opening, or null. Can be called at any time. */
  public final Scheme getScheme() {
    return scheme;
  }

  /**
   * Returns the description of the message.
   *
   * @throws IllegalStateException if the message is not usable; or if it was delivered, another
   *     description is possible (see {@link Scheme#findAlternative}), and the gateway's record does
   *     not show that the description with the message's name applies
   * @throws NoSuchElementException if there is no scheme, if the scheme has no message of this
   *     name, if the message was delivered with neither index nor id, or if it is a copy of a
   *     message for which this method throws
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
    if (alternative() == null) setDesc(desc); // it applies to every message in this object
    return desc;
  }

  @Override
  public AbstractDataMessage copy() {
    requireUsable();
    final MessageDesc desc = findDesc(); // from the original, because it may read the record
    final AbstractDataMessage copy = (AbstractDataMessage) super.copy();
    copy.setDesc(desc);
    return copy;
  }

  /** Returns whether messages of different descriptions may be delivered in this object. */
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

  /** Sets the name. Native code calls it after setMsgIndex and setMsgId. */
  void setMsgName(String name) {
    msgName = name;
    setDesc(null);
    isAlternativeKnown = false;
  }
}
