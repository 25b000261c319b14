// What happens at the collector while the page is open, and whether the page hears of it.

const kEvents = ['report', 'amended', 'cleared', 'faults', 'settings', 'resync'];
const kPauseBeforeAnotherTry = 2000;

// Dispatches the collector's events, each with its JSON as `detail`, and "connected" whenever the
// connection stands: for the first time, or again, when whatever was shown may be old.
export class Live extends EventTarget {
  constructor(path, showState) {
    super();
    this.path = path;
    this.stood = false;
    this.showState = showState;
  }

  connect() {
    this.showState('connecting');
    const source = new EventSource(this.path);
    source.addEventListener('open', () => {
      this.showState('live');
      this.dispatchEvent(new CustomEvent('connected', { detail: { again: this.stood } }));
      this.stood = true;
    });
    source.addEventListener('error', () => this.#lost(source));
    for (const name of kEvents) {
      source.addEventListener(name, (event) => this.#pass(name, event.data));
    }
  }

  // A browser tries again by itself when a connection breaks, but not when it was refused.
  #lost(source) {
    this.showState('lost');
    if (source.readyState !== EventSource.CLOSED) return;
    setTimeout(() => this.connect(), kPauseBeforeAnotherTry);
  }

  #pass(name, data) {
    this.dispatchEvent(new CustomEvent(name, { detail: data ? JSON.parse(data) : null }));
  }
}
