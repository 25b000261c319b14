// The collector's interface for programs.

async function send(method, path, body) {
  const options = { method, cache: 'no-store' };
  if (body !== undefined) {
    options.headers = { 'Content-Type': 'application/json' };
    options.body = JSON.stringify(body);
  }
  const response = await fetch(path, options);
  const text = await response.text();
  const reply = text ? JSON.parse(text) : {};
  if (!response.ok) throw Object.assign(new Error(reply.error), { status: response.status });
  return reply;
}

export const get = (path) => send('GET', path);
export const post = (path, body) => send('POST', path, body);
export const put = (path, body) => send('PUT', path, body);
export const remove = (path) => send('DELETE', path);

// The part after the path, of the parameters that have a value.
export function query(parameters) {
  const given = Object.entries(parameters).filter(([, value]) => value !== '' && value != null);
  return given.length ? `?${new URLSearchParams(given)}` : '';
}
