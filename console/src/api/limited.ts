const most = 4;
const waiting: (() => void)[] = [];
let running = 0;

/** Runs the task when fewer than four others run: what many rows ask for leaves room for what somebody presses. */
export async function limited<Result>(task: () => Promise<Result>): Promise<Result> {
  if (running >= most) await new Promise<void>((resolve) => waiting.push(resolve));
  else running += 1;
  try {
    return await task();
  } finally {
    const next = waiting.shift();
    if (next) next();
    else running -= 1;
  }
}
