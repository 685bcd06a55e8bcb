// Without a network the page comes from its last visit. With one every file is asked for at the
// server, which answers in a few bytes where nothing is new: nobody sees a page of yesterday.
const VERSION = '';
const FIRST = []; // what every visit needs
const ALL = [];
const CACHE = `jurn-${VERSION}`;

const address = (name) => new URL(name, registration.scope).href;

/** The files of now: those of every visit, and those that were used before. */
async function fill() {
  const used = new Set();
  for (const name of await caches.keys())
    for (const { url } of await (await caches.open(name)).keys()) used.add(url);
  const cache = await caches.open(CACHE);
  await cache.addAll([...new Set([...FIRST.map(address), ...ALL.map(address).filter((url) => used.has(url))])]
    .map((url) => new Request(url, { cache: 'no-cache' })));
}

async function forgetOthers() {
  for (const name of await caches.keys()) if (name.startsWith('jurn-') && name !== CACHE) await caches.delete(name);
  await clients.claim();
}

const KNOWN = new Set(ALL.map(address));

function keyOf(request) {
  const { origin, pathname } = new URL(request.url);
  return origin + (pathname.endsWith('/') ? `${pathname}index.html` : pathname);
}

async function answer(request) {
  const cache = await caches.open(CACHE), key = keyOf(request);
  try {
    // Of a navigation the browser takes care itself.
    const response = await fetch(request, request.mode === 'navigate' ? {} : { cache: 'no-cache' });
    if (response.status === 200) await cache.put(key, response.clone());
    return response;
  } catch (error) {
    const kept = await cache.match(key);
    if (kept) return kept;
    throw error;
  }
}

addEventListener('install', (event) => {
  skipWaiting();
  event.waitUntil(fill());
});
addEventListener('activate', (event) => event.waitUntil(forgetOthers()));
addEventListener('fetch', (event) => {
  if (event.request.method === 'GET' && KNOWN.has(keyOf(event.request))) event.respondWith(answer(event.request));
});
// Once it is installed as a program, all of it is kept.
addEventListener('message', (event) => {
  if (event.data !== 'all') return;
  event.waitUntil(caches.open(CACHE).then(async (cache) => {
    for (const url of ALL.map(address)) if (!(await cache.match(url))) await cache.add(url).catch(() => {});
  }));
});
