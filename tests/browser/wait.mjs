export const sleep = (seconds) => new Promise((resolve) => setTimeout(resolve, seconds * 1000));

/** Tries until `read` resolves to something true, and resolves to that. A failure of `fetch` counts as not yet. */
export async function eventually(what, seconds, read) {
  const end = Date.now() + seconds * 1000;
  for (;;) {
    const found = await Promise.resolve(read()).catch((failure) => {
      if (!(failure instanceof TypeError)) throw failure;
    });
    if (found) return found;
    if (Date.now() > end) throw new Error(`Not within ${seconds} s: ${what}`);
    await sleep(0.1);
  }
}
