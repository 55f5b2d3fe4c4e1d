package org.quendel.oxli;

import java.util.concurrent.locks.ReentrantLock;

/** A lock that shows which thread has locked it. */
final class VisibleLock extends ReentrantLock {
  private static final long serialVersionUID = 1;

  VisibleLock(boolean isFair) {
    super(isFair);
  }

  /** Returns the thread that has locked it, or null; it may have unlocked it meanwhile. */
  Thread owner() {
    return getOwner();
  }
}
