// The picture finds what it shares with servers in a global variable: pages of the viewer load it as a script.
import protocol from '../../../lib/scene/inspect/protocol.js';

self.nqProtocol = protocol;
