package org.quendel.oxli;

import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;

/**
 * The layout of a listener's or publisher's messages: {@link MessageDesc messages} of {@link
 * FieldDesc fields} and {@link IndexDesc indexes}. It belongs to one opening: reopening gives a new
 * one. Filled once, by native code; after that the whole tree does not change and any thread may
 * read it.
 *
 * <p>Names, descriptions, hints and type texts of a scheme pass through the virtual machine's
 * modified UTF-8: in them, characters beyond U+FFFF that the gateway writes in standard UTF-8 do not
 * arrive as such. Texts in payloads do not pass through it: see {@link FieldDesc#getText}.
 */
public final class Scheme {
  private long ref;
  private long type;
  private long features;
  private List<MessageDesc> messages = Collections.emptyList();
  private Map<String, MessageDesc> messagesByName = Collections.emptyMap();

  Scheme() {}

  /** Address of the gateway's description, which lives no longer than what it describes. */
  public long getRef() {
    return ref;
  }

  /** The gateway's kind of scheme, an unsigned 32-bit number. */
  public long getType() {
    return type;
  }

  /** The gateway's feature bits, an unsigned 32-bit number. */
  public long getFeatures() {
    return features;
  }

  /** The messages in the order of their indexes, unmodifiable. */
  public List<MessageDesc> getMessages() {
    return messages;
  }

  /**
   * A message by its name.
   *
   * @throws NoSuchElementException when there is none of that name
   */
  public MessageDesc getMessage(String name) {
    final MessageDesc message = findMessage(name);
    if (message != null) return message;
    throw new NoSuchElementException("the scheme has no message " + name);
  }

  /** A message by its name, or null. */
  public MessageDesc findMessage(String name) {
    return messagesByName.get(name);
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

  void setMessages(MessageDesc[] newMessages) {
    messages = Descriptions.list(newMessages);
    messagesByName = Descriptions.byName(newMessages, MessageDesc::getName);
  }
}
