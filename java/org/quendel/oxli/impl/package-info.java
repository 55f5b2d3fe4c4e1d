/**
 * Internal: the natives and the classes that they need. Classes are public, because several
 * packages of this library use them; applications use {@link org.quendel.oxli}.
 */
package org.quendel.oxli.impl;
