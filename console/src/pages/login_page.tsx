import {useSignal} from '@preact/signals';
import {ApiError} from '../api/client';
import {logIn} from '../state/session';
import {texts} from '../texts';

export function LoginPage() {
  const failure = useSignal('');
  const busy = useSignal(false);
  const submit = async (event: SubmitEvent) => {
    event.preventDefault();
    const form = new FormData(event.currentTarget as HTMLFormElement);
    busy.value = true;
    try {
      await logIn(String(form.get('name')), String(form.get('password')));
    } catch (error) {
      const isWrong = error instanceof ApiError && error.status === 401;
      failure.value = isWrong ? texts.login.wrong : (error as Error).message;
    } finally {
      busy.value = false;
    }
  };
  return (
    <main class="login">
      <form class="panel" onSubmit={submit}>
        <h1>{texts.brand}</h1>
        <label>
          {texts.login.name}
          <input name="name" autocomplete="username" required autofocus />
        </label>
        <label>
          {texts.login.password}
          <input name="password" type="password" autocomplete="current-password" required />
        </label>
        <p class="failure" role="alert">
          {failure}
        </p>
        <button class="primary" type="submit" disabled={busy}>
          {texts.login.submit}
        </button>
      </form>
    </main>
  );
}
