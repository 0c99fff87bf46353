import type {Finding} from './types';

/** What the server answered instead of a result. `findings` name the members of a form that it refuses. */
export class ApiError extends Error {
  constructor(
    readonly status: number,
    message: string,
    readonly findings: Finding[] = [],
    readonly document?: unknown,
  ) {
    super(message);
  }
}

async function readFailure(response: Response): Promise<ApiError> {
  const text = await response.text();
  try {
    const body = JSON.parse(text);
    return new ApiError(response.status, body.error ?? response.statusText, body.findings ?? [], body.document);
  } catch {
    return new ApiError(response.status, text || response.statusText);
  }
}

/** Throws `ApiError` for an answer of failure, with status 0 when the server can't be reached. */
async function send(
  method: string,
  path: string,
  body?: unknown,
  headers: Record<string, string> = {},
): Promise<Response> {
  const init: RequestInit = {method, headers};
  if (body !== undefined) {
    init.body = JSON.stringify(body);
    init.headers = {...headers, 'Content-Type': 'application/json'};
  }
  let response: Response;
  try {
    response = await fetch(path, init);
  } catch {
    throw new ApiError(0, 'The server does not answer');
  }
  if (!response.ok) throw await readFailure(response);
  return response;
}

async function ask<Result>(
  method: string,
  path: string,
  body?: unknown,
  headers?: Record<string, string>,
): Promise<Result> {
  const response = await send(method, path, body, headers);
  return (response.status === 204 ? undefined : await response.json()) as Result;
}

export const get = <Result>(path: string) => ask<Result>('GET', path);
export const post = <Result>(path: string, body: unknown = {}) => ask<Result>('POST', path, body);
export const patch = <Result>(path: string, body: unknown, headers?: Record<string, string>) =>
  ask<Result>('PATCH', path, body, headers);
export const remove = (path: string) => ask<void>('DELETE', path);
export const getText = async (path: string) => (await send('GET', path)).text();

/** A document with the tag that an edit of it sends back as If-Match. */
export async function getTagged<Result>(path: string): Promise<{value: Result; tag: string}> {
  const response = await send('GET', path);
  return {value: (await response.json()) as Result, tag: response.headers.get('ETag') ?? ''};
}
