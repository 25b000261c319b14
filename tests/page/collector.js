// A running zln-collector, and a game that reports to it.

import { spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import https from 'node:https';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';

const kProgram = process.env.ZLN_COLLECTOR;
const kPatience = Number(process.env.ZLN_PAGE_PATIENCE ?? 30000);
const kAtOnce = 16;

function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.on('error', reject);
    server.listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

export const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// Asks again until `ask` answers with something true.
export async function until(ask, what) {
  const end = Date.now() + kPatience;
  for (;;) {
    const answer = await ask();
    if (answer) return answer;
    if (Date.now() > end) throw new Error(`it never came to this: ${what}`);
    await pause(50);
  }
}

export class Collector {
  static async start(options = []) {
    if (!kProgram) throw new Error('ZLN_COLLECTOR must name the program');
    const collector = new Collector();
    collector.folder = mkdtempSync(path.join(os.tmpdir(), 'zln-page-'));
    collector.options = options;
    collector.port = await freePort();
    collector.pagePort = await freePort();
    await collector.run();
    return collector;
  }

  get page() {
    return `http://127.0.0.1:${this.pagePort}/`;
  }

  async run() {
    this.output = '';
    this.process = spawn(kProgram, [
      '--port',
      this.port,
      '--page-port',
      this.pagePort,
      '--data',
      this.folder,
      ...this.options,
    ]);
    const keep = (text) => (this.output = (this.output + text).slice(-4000));
    this.process.stdout.on('data', keep);
    this.process.stderr.on('data', keep);
    this.ended = new Promise((resolve) => this.process.on('close', resolve));
    await until(() => this.status().catch(() => this.#stillThere()), 'the collector answers');
    this.authority = readFileSync((await this.status()).authority);
  }

  #stillThere() {
    if (this.process.exitCode !== null) throw new Error(`the collector ended: ${this.output}`);
    return null;
  }

  async end() {
    this.process.kill('SIGINT');
    await this.ended;
  }

  async remove() {
    await this.end();
    rmSync(this.folder, { recursive: true, force: true });
  }

  status() {
    return this.ask('GET', '/api/status');
  }

  // The operator's side.
  async ask(method, place, body) {
    const response = await fetch(new URL(place, this.page), {
      method,
      headers: body === undefined ? {} : { 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
    const text = await response.text();
    return text ? JSON.parse(text) : null;
  }

  // The game's side: the answer as { status, body }, rejected when the connection breaks. As with the
  // library each request has a connection of its own unless an agent keeps them.
  post(place, body, agent = false) {
    const content = typeof body === 'string' ? body : JSON.stringify(body);
    return new Promise((resolve, reject) => {
      const request = https.request(
        {
          host: 'localhost',
          port: this.port,
          path: place,
          method: 'POST',
          ca: this.authority,
          agent,
          family: 4,
          headers: {
            'Content-Type': 'application/json',
            'Content-Length': Buffer.byteLength(content),
          },
        },
        (response) => {
          let text = '';
          response.setEncoding('utf8');
          response.on('data', (piece) => (text += piece));
          response.on('end', () => resolve({ status: response.statusCode, body: text }));
          response.on('error', reject);
        },
      );
      request.on('error', reject);
      request.end(content);
    });
  }

  report(body) {
    return this.post('/session', body);
  }

  async config() {
    return JSON.parse((await this.post('/config', {})).body);
  }

  // Many reports, over connections that are kept. One that breaks between two requests is no
  // failure of the collector: the report goes over another.
  async reportAll(bodies) {
    const agent = new https.Agent({ keepAlive: true, maxSockets: kAtOnce });
    let next = 0;
    const sender = async () => {
      while (next < bodies.length) {
        const body = bodies[next++];
        await this.post('/session', body, agent).catch(() => this.post('/session', body));
      }
    };
    await Promise.all(Array.from({ length: kAtOnce }, sender));
    agent.destroy();
  }
}
