/** Internal: the boundary to native code that needs no gateway. Applications do not use it. */
package org.quendel.oxli.ex.impl;
