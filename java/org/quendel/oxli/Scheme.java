package org.quendel.oxli;

import java.util.Collections;
import java.util.List;

/**
 * The layout of a listener's or publisher's messages. It belongs to one opening: reopening gives a
 * new one. Type, features and messages are empty until native code has converted the gateway's
 * description; after that the object does not change and any thread may read it.
 */
public final class Scheme {
  private long ref;
  private long type;
  private long features;
  private List<MessageDesc> messages = Collections.emptyList();

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
  }
}
