/**
 * The seam to the native library. Public only because several packages of the library and its
 * native code meet here; applications use {@link org.quendel.oxli}.
 */
package org.quendel.oxli.impl;
