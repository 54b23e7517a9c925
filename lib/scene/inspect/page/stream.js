// The connection to the server: receives messages, sends controls, and reconnects after it is lost.

const protocol = self.nqProtocol;

/** Milliseconds until a lost connection is retried. */
const kRetryMilliseconds = 1000;

/** Passes messages of the server to listeners, and sends controls. */
export class Stream {
  /**
   * @param {string} path of the stream on this page's server
   * @param {{open: function(), lost: function(string), scene: function(Object),
   *     frame: function(Object)}} listeners
   */
  constructor(path, listeners) {
    this.address = `ws://${location.host}${path}`;
    this.listeners = listeners;
    this.messages = 0;
    this.bytes = 0;
    this.connect();
  }

  connect() {
    this.socket = new WebSocket(this.address);
    this.socket.binaryType = 'arraybuffer';
    this.socket.onopen = () => this.listeners.open();
    this.socket.onmessage = ({ data }) => this.receive(data);
    this.socket.onclose = ({ reason }) => {
      this.listeners.lost(reason);
      setTimeout(() => this.connect(), kRetryMilliseconds);
    };
  }

  receive(buffer) {
    ++this.messages;
    this.bytes += buffer.byteLength;
    if (protocol.kindOf(buffer) === protocol.kinds.scene) {
      this.listeners.scene(
        protocol.decodeScene(buffer, (bytes) => new TextDecoder().decode(bytes))
      );
    } else {
      this.listeners.frame(protocol.decodeFrame(buffer));
    }
  }

  /**
   * Sends controls to the server; does nothing while there is no connection.
   * @param {Object} controls
   */
  send(controls) {
    if (this.socket.readyState === WebSocket.OPEN) {
      this.socket.send(JSON.stringify(controls));
    }
  }
}
