// A running zln-collector, and a game that reports to it.

import { spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import https from 'node:https';
import os from 'node:os';
import path from 'node:path';
import tls from 'node:tls';

const kProgram = process.env.ZLN_COLLECTOR;
const kPatience = Number(process.env.ZLN_PAGE_PATIENCE ?? 30000);
const kAtOnce = 8;
// The collector answers so many requests on a connection.
const kOnAConnection = 5;

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
    collector.port = 0;
    collector.pagePort = 0;
    await collector.run();
    return collector;
  }

  get page() {
    return `http://127.0.0.1:${this.pagePort}/`;
  }

  // On any free ports at first, and on the same ones again.
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
    this.pagePort = await until(() => this.#introducedPort(), 'the collector says where its page is');
    const { authority, ports } = await this.status();
    this.port = ports.config;
    this.authority = readFileSync(authority);
  }

  #introducedPort() {
    if (this.process.exitCode !== null) throw new Error(`the collector ended: ${this.output}`);
    return Number(/The page is at http:\/\/localhost:(\d+)\//.exec(this.output)?.[1]);
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
  // library each request has a connection of its own.
  post(place, body) {
    const content = typeof body === 'string' ? body : JSON.stringify(body);
    return new Promise((resolve, reject) => {
      const request = https.request(
        {
          host: 'localhost',
          port: this.port,
          path: place,
          method: 'POST',
          ca: this.authority,
          agent: false,
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

  // Many reports, several written at once on each connection.
  async reportAll(bodies) {
    let next = 0;
    const sender = async () => {
      while (next < bodies.length) {
        const begin = next;
        next += kOnAConnection;
        await this.#reportOnOneConnection(bodies.slice(begin, next));
      }
    };
    await Promise.all(Array.from({ length: kAtOnce }, sender));
  }

  #reportOnOneConnection(bodies) {
    const requests = bodies.map((body, index) => {
      const content = JSON.stringify(body);
      const isLast = index === bodies.length - 1;
      return (
        `POST /session HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n` +
        `Content-Length: ${Buffer.byteLength(content)}\r\n` +
        `Connection: ${isLast ? 'close' : 'keep-alive'}\r\n\r\n${content}`
      );
    });
    return new Promise((resolve, reject) => {
      const socket = tls.connect({
        host: '127.0.0.1',
        servername: 'localhost',
        port: this.port,
        ca: this.authority,
        session: this.session,
      });
      let answers = '';
      socket.setEncoding('utf8');
      socket.on('session', (session) => (this.session = session));
      socket.on('data', (piece) => (answers += piece));
      socket.on('error', reject);
      socket.on('close', () => {
        const accepted = answers.split('{"success":true}').length - 1;
        if (accepted === bodies.length) resolve();
        else reject(new Error(`${accepted} of ${bodies.length} reports were accepted: ${answers}`));
      });
      socket.write(requests.join(''));
    });
  }
}
