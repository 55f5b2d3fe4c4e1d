package org.quendel.oxli;

import java.util.concurrent.locks.ReentrantLock;

/** A reentrant lock that returns the thread that has locked it. */
final class VisibleLock extends ReentrantLock {
  private static final long serialVersionUID = 1;

  VisibleLock(boolean isFair) {
    super(isFair);
  }

  /**
   * Returns the thread that has locked this lock, or null. The thread may unlock it before this
   * method returns.
   */
  Thread owner() {
    return getOwner();
  }
}
