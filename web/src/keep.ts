// The service worker, which keeps the page for when there is no network.

/** Keeps what was used; all of it once the page is installed. */
export async function keep(): Promise<void> {
  if (!('serviceWorker' in navigator)) return;
  await navigator.serviceWorker.register('service-worker.js');
  const all = async () => (await navigator.serviceWorker.ready).active?.postMessage('all');
  addEventListener('appinstalled', () => void all());
  if (matchMedia('(display-mode: standalone)').matches) await all();
}
