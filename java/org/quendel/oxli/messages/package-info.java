/** The messages that listeners receive and publishers post. */
package org.quendel.oxli.messages;
