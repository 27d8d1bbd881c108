// Where requests wait until they are let through, and where a test waits until they are there.

export class Gate {
  #held = [];
  #watchers = new Set();

  pass() {
    return new Promise((resolve) => {
      this.#held.push(resolve);
      this.#watchers.forEach((look) => look());
    });
  }

  // Lets through those that are here; answers how many they were.
  open() {
    const held = this.#held.splice(0);
    held.forEach((letThrough) => letThrough());
    return held.length;
  }

  // Answers once `count` requests are here; fails when they do not come in time.
  waitFor(count, seconds) {
    return new Promise((resolve, reject) => {
      const look = () => {
        if (this.#held.length < count) return;
        end();
        resolve();
      };
      const timer = setTimeout(() => {
        end();
        reject(new Error(`${this.#held.length} requests are held after ${seconds} seconds`));
      }, seconds * 1000);
      const end = () => {
        clearTimeout(timer);
        this.#watchers.delete(look);
      };
      this.#watchers.add(look);
      look();
    });
  }
}
