package org.quendel.oxli;

import java.util.ArrayList;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.AbstractDataMessage;

/**
 * Describes the messages of a listener or publisher: {@link MessageDesc messages} with {@link
 * FieldDesc fields} and {@link IndexDesc indexes}. A scheme belongs to one opening: the next
 * opening has a new one. Native code fills it once; after that the whole tree is immutable and
 * thread-safe.
 *
 * <p>The names, descriptions, hints and types of a scheme are converted from the virtual machine's
 * modified UTF-8: characters above U+FFFF that the gateway writes in standard UTF-8 become other
 * characters. Strings in payloads are not converted in this way; see {@link FieldDesc#getText}.
 */
public final class Scheme {
  private static final int NONE = -1;

  /** Offset in bytes of the message's index in the gateway's record of a data message or row. */
  private static final int INDEX_IN_RECORD = 32;

  private long ref;
  private long type;
  private long features;
  private List<MessageDesc> messages = Collections.emptyList();
  private boolean isComplete;
  private Map<String, MessageDesc> messagesByName = Collections.emptyMap();
  private final Map<Long, List<MessageDesc>> messagesByNumber = new HashMap<>();

  Scheme() {}

  /** Returns the address of the gateway's description, which is valid during the opening. */
  public long getRef() {
    return ref;
  }

  /** Returns the gateway's type of scheme, an unsigned 32-bit number. */
  public long getType() {
    return type;
  }

  /** Returns the gateway's feature bits, an unsigned 32-bit number. */
  public long getFeatures() {
    return features;
  }

  /** Returns the messages in the order of their indexes, unmodifiable. */
  public List<MessageDesc> getMessages() {
    return messages;
  }

  /**
   * Returns a message by its name.
   *
   * @throws NoSuchElementException if there is no message of that name
   */
  public MessageDesc getMessage(String name) {
    return Descriptions.get(messagesByName, name, "the scheme", "message");
  }

  /** Returns a message by its name, or null if there is none. */
  public MessageDesc findMessage(String name) {
    return messagesByName.get(name);
  }

  /**
   * Returns the description of a delivered message. Returns null if the scheme has no message of
   * its name. Returns null also if {@link #findAlternative another description} is possible, unless
   * the message's record shows that the description with the message's name applies.
   */
  public MessageDesc findMessage(AbstractDataMessage message) {
    final int msgIndex = message.getMsgIndex();
    final int msgId = message.getMsgId();
    final String msgName = message.getMsgName();
    final MessageDesc alternative = findAlternative(msgIndex, msgId, msgName);
    if (alternative != null) {
      // The object has the key of the first message in it; the record has the key of this message.
      final boolean haveSameId = msgIndex == NONE
          && alternative.getNumber() == Integer.toUnsignedLong(msgId);
      final long record = MessageAccess.refOf(message);
      if (haveSameId || (int) ZBlock.readLong(record + INDEX_IN_RECORD) != msgIndex) return null;
    }
    return findMessage(msgName);
  }

  /**
   * Returns another description whose messages may be delivered in the same object as the messages
   * of the description named {@code msgName}, or null if there is none.
   *
   * <p>A listener delivers messages in the same object if they have the same class and key: the
   * index, or the id of a message without an index. Two descriptions can therefore share an object
   * if the id of one is the index of the other, or if they have the same id. A description does not
   * state whether its messages have an index, so the messages of the returned description may have
   * an object of their own.
   *
   * @param msgIndex the index with which the object was made, or -1
   * @param msgId the id with which the object was made, or -1
   * @param msgName the name with which the object was made
   */
  public MessageDesc findAlternative(int msgIndex, int msgId, String msgName) {
    final MessageDesc own = findMessage(msgName);
    final int key = msgIndex != NONE ? msgIndex : msgId;
    for (MessageDesc other : ofId(key)) {
      if (other != own) return other;
    }
    final MessageDesc ofIndex = msgIndex != NONE ? own : findMessageByIndex(key);
    return ofIndex == own ? null : ofIndex;
  }

  /** Returns the whole scheme as a tree: one line for each part, indented by its depth. */
  @Override
  public String toString() {
    return SchemePrinter.print(this);
  }

  /** Returns the message at the position, or null if there is none. */
  MessageDesc findMessageByIndex(int index) {
    return index >= 0 && index < messages.size() ? messages.get(index) : null;
  }

  /** Returns the first message with the id, or null if there is none. */
  MessageDesc findMessageById(int id) {
    final List<MessageDesc> found = ofId(id);
    return found.isEmpty() ? null : found.get(0);
  }

  private List<MessageDesc> ofId(int id) {
    final List<MessageDesc> found =
        id == NONE ? null : messagesByNumber.get(Integer.toUnsignedLong(id));
    return found == null ? Collections.emptyList() : found;
  }

  void setRef(long newRef) {
    ref = newRef;
  }

  void setType(long newType) {
    type = newType;
  }

  void setFeatures(long newFeatures) {
    features = newFeatures;
  }

  /**
   * Checks that native code has filled the scheme: at a limit, such as the nesting depth of
   * messages, the conversion stops without an exception.
   *
   * @throws OxliException if the scheme is not filled
   */
  void requireComplete(String operation, Object object) {
    if (isComplete) return;
    throw new OxliException(operation + " (" + object + "): the scheme exceeds a limit; a line on"
        + " standard error names the step" + Results.inHex(ResultCode.INTERNAL),
        ResultCode.INTERNAL);
  }

  void setMessages(MessageDesc[] newMessages) {
    isComplete = true;
    messages = Descriptions.list(newMessages);
    messagesByName = Descriptions.byName(newMessages, MessageDesc::getName);
    for (MessageDesc message : newMessages) {
      if (message == null) continue;
      messagesByNumber.computeIfAbsent(message.getNumber(), number -> new ArrayList<>())
          .add(message);
    }
  }
}
