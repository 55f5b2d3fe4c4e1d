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

  AbstractDataMessage(int type, int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(type);
    this.msgId = msgId;
    this.msgIndex = msgIndex;
    this.msgName = msgName;
    this.scheme = scheme;
  }

  /** Position of the message's description in the scheme, -1 when it has none. */
  public final int getMsgIndex() {
    return msgIndex;
  }

  /** The message's id in the scheme, unsigned; -1 when it has none. */
  public final int getMsgId() {
    return msgId;
  }

  /**
   * The message's name in the scheme. Delivered messages of one index share an object, those without
   * an index one for each id, those with neither one for all; an index and an id of the same number
   * count as one. Index, id and name are those of the first message that the object showed.
   */
  public final String getMsgName() {
    return msgName;
  }

  /** The scheme of the opening that the message came with, or null. */
  public final Scheme getScheme() {
    return scheme;
  }

  /**
   * The description of {@link #getMsgName} in the message's scheme. Of a delivered message it is to be
   * trusted as far as that name is: not in a scheme that has messages without an index whose id is
   * another one's index.
   *
   * @throws NoSuchElementException when there is no scheme, no such message in it, or the message was
   *     delivered, or copied, with neither index nor id: nothing says then which description it is of
   */
  public final MessageDesc getDesc() {
    final MessageDesc desc = findDesc();
    if (desc != null) return desc;
    throw new NoSuchElementException("no scheme describes " + msgName);
  }

  final MessageDesc findDesc() {
    final boolean known = scheme != null && (isOutgoing() || !isUnkeyed());
    return known ? scheme.findMessage(msgName) : null;
  }

  /** Whether the object may show messages of different descriptions one after the other. */
  final boolean isUnkeyed() {
    return msgIndex == NONE && msgId == NONE;
  }

  void setMsgIndex(int index) {
    msgIndex = index;
  }

  void setMsgId(int id) {
    msgId = id;
  }

  void setMsgName(String name) {
    msgName = name;
  }
}
