'use strict';
// The built site in a browser: its pages, links, menu and search, below a folder of a server.
const assert = require('assert');
const fs = require('fs');
const http = require('http');
const os = require('os');
const path = require('path');
const sirv = require('sirv');
const { filesBelow, findBrokenLinks } = require('../../scripts/lib/site-links');
const { folders } = require('../../scripts/lib/site-pages');
const { startBrowser } = require('./viewer-page');

/** A folder whose name must be escaped in an address. */
const kBase = '/some%20folder/';
const desktop = { width: 1280, height: 800 };
const phone = { width: 360, height: 740 };

/** Maximum bytes of the search index, which the first search of a visit downloads. */
const kMostIndexBytes = 3e6;

let browser;
let server;
let address;

before(async () => {
  browser = await startBrowser();
  const answer = sirv(folders.site);
  server = http.createServer((request, response) => {
    const refuse = () => response.writeHead(404).end('absent');
    if (request.url.startsWith(kBase)) {
      request.url = request.url.slice(kBase.length - 1);
      answer(request, response, refuse);
    } else {
      refuse();
    }
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  address = `http://127.0.0.1:${port}${kBase}`;
});

after(async () => {
  await browser.close();
  server.close();
});

/** A page of the browser, and what goes wrong in it. */
async function openPage(viewport) {
  const page = await browser.newPage({ viewport });
  page.setDefaultTimeout(60000);
  page.troubles = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) {
      page.troubles.push(`${page.url()}: ${message.text()}`);
    }
  });
  page.on('pageerror', (error) => page.troubles.push(`${page.url()}: ${error.stack}`));
  page.on('response', (response) => {
    if (response.status() >= 400) {
      page.troubles.push(`${page.url()}: ${response.status()} of ${response.url()}`);
    }
  });
  page.on('request', (request) => {
    if (!request.url().startsWith(address) && !request.url().startsWith('data:')) {
      page.troubles.push(`${page.url()} asks for ${request.url()}`);
    }
  });
  return page;
}

/** Waits until a page's scripts run: from then on its links are complete, and clicks are handled. */
async function awaitScripts(page) {
  await page.waitForFunction(() => document.querySelector('#app').__vue_app__ !== undefined);
}

/** Facts of the page that is shown. */
function factsOf(page) {
  return page.evaluate(() => ({
    title: document.title,
    // Absent pages have neither.
    heading: Array.from(document.querySelectorAll('main h1'), (one) => one.innerText).join(),
    text: Array.from(document.querySelectorAll('main'), (one) => one.innerText).join(),
    prose: Array.from(document.querySelectorAll('main'), (one) => {
      const copy = one.cloneNode(true);
      copy.querySelectorAll('pre, code').forEach((code) => code.remove());
      return copy.textContent;
    }).join(),
    ids: Array.from(document.querySelectorAll('[id]'), ({ id }) => id),
    links: Array.from(document.links, ({ href }) => href),
    images: Array.from(document.querySelectorAll('main img'), (image) => [
      image.src,
      image.complete && image.naturalWidth > 0,
    ]),
    // The body clips what exceeds its width, so each element is measured.
    width: Math.max(
      document.documentElement.scrollWidth,
      ...Array.from(document.querySelectorAll('main h1, main p, main table, main div'), (part) =>
        Math.ceil(part.getBoundingClientRect().right)
      )
    ),
  }));
}

/** Visits all pages that links lead to from the first one on. */
async function crawl(page) {
  const pages = new Map();
  const waiting = [address];
  const linkedBy = new Map();
  while (waiting.length > 0) {
    const url = waiting.shift();
    const response = await page.goto(url);
    assert.ok(response.ok(), `${linkedBy.get(url)} links ${url}, which is absent`);
    await awaitScripts(page);
    const facts = await factsOf(page);
    pages.set(url, facts);
    for (const link of facts.links.map((one) => one.split('#')[0])) {
      if (link.startsWith('http://127.0.0.1') && !pages.has(link) && !waiting.includes(link)) {
        waiting.push(link);
        linkedBy.set(link, url);
      }
    }
  }
  return pages;
}

describe('site', () => {
  describe('on a phone', () => {
    let pages;
    let troubles;

    before(async () => {
      const page = await openPage(phone);
      pages = await crawl(page);
      ({ troubles } = page);
      await page.close();
    });

    it('shows every page, reached by links from the first', () => {
      const built = filesBelow(folders.site).filter((file) => file.endsWith('.html'));
      const urls = built.map((file) => address + file.replace(/(^|\/)index\.html$/, '$1'));
      assert.deepStrictEqual(Array.from(pages.keys()).sort(), urls.sort());
      assert.ok(urls.length > 80, String(urls.length));
      for (const [url, { title, heading, text, prose }] of pages) {
        assert.ok(title !== '' && heading !== '', url);
        assert.ok(text.length > heading.length + 20, `${url} has no text: ${text}`);
        // "[iterator]()" is a method.
        assert.ok(
          !/<\/?(a|br|p|ul|li)\b|\]\((?!\))/.test(prose),
          `${url} shows raw HTML or Markdown`
        );
      }
    });

    it('sends requests to its own server only, and logs no errors', () => {
      assert.deepStrictEqual(troubles, []);
    });

    it('has no link to an anchor that is absent, and no image without a picture', () => {
      let anchors = 0;
      for (const [url, { links, images }] of pages) {
        for (const link of links.filter((one) => one.startsWith(address) && one.includes('#'))) {
          const [target, anchor] = link.split('#');
          ++anchors;
          const found = anchor === '' || pages.get(target).ids.includes(decodeURIComponent(anchor));
          assert.ok(found, `${url} links ${link}`);
        }
        images.forEach(([source, isShown]) => assert.ok(isShown, `${url} shows ${source}`));
      }
      assert.ok(anchors > 500, String(anchors));
      assert.strictEqual(pages.get(address).images.length, 1);
    });

    it('is no wider than the screen', () => {
      for (const [url, { width }] of pages) {
        assert.ok(width <= phone.width, `${url} is ${width} pixels wide`);
      }
    });

    it('has the documents, the examples with what they print, and the reference', () => {
      const textOf = (name) => pages.get(`${address}${name}`).text;
      assert.ok(textOf('').includes('nq_logic'));
      assert.ok(textOf('docs/frame.html').includes('refreshWorldTransform'));
      const example = textOf('examples/01-hello.html');
      const printed = fs.readFileSync(
        path.join(__dirname, '../../examples/expected/01-hello.txt'),
        'utf8'
      );
      assert.ok(example.includes(printed.trim()) && example.includes('new nq.Entity3DView'));
      assert.ok(textOf('api/nq_logic/classes/Entity3DView.html').includes('setPosition'));
      assert.ok(textOf('LICENSE.html').includes('MIT'));
    });
  });

  describe('on a desktop', () => {
    let page;

    before(async () => {
      page = await openPage(desktop);
    });

    after(() => page.close());

    beforeEach(async () => {
      await page.goto(`${address}docs/frame.html`);
      await awaitScripts(page);
    });

    /** Waits for the page at a place of the site, and for its heading. */
    async function arriveAt(place, heading) {
      await page.waitForURL((url) => url.href.startsWith(`${address}${place}`));
      await page.waitForFunction(
        (text) =>
          Array.from(document.querySelectorAll('main h1')).some((one) =>
            one.innerText.includes(text)
          ),
        heading
      );
    }

    /** Titles of what a search finds, best first. */
    async function search(word) {
      await page.keyboard.press('Control+k');
      await page.locator('#localsearch-input').fill(word);
      await page.locator('.VPLocalSearchBox .result').first().waitFor();
      // Excerpts arrive after titles.
      await page.waitForFunction((text) => {
        const marks = Array.from(document.querySelectorAll('.VPLocalSearchBox mark'));
        return marks.some((mark) => mark.innerText.toLowerCase().includes(text.toLowerCase()));
      }, word);
      return page
        .locator('.VPLocalSearchBox .result')
        .evaluateAll((results) => results.map((one) => one.href));
    }

    it('navigates by its menu without reloading', async () => {
      await page.evaluate(() => {
        self.isSameVisit = true;
      });
      const menu = page.locator('.VPSidebar');
      await menu.getByText('Culling', { exact: true }).click();
      await arriveAt('docs/culling.html', 'Culling');
      await menu.getByText('API reference', { exact: true }).click();
      await arriveAt('api/', 'API reference');
      await page.locator('main').getByRole('link', { name: 'SkinningView', exact: true }).click();
      await arriveAt('api/nq_logic/classes/SkinningView.html', 'SkinningView');
      // From a deeper folder back to others.
      await menu.getByText('Overview', { exact: true }).click();
      await arriveAt('', 'nq_logic');
      await menu.getByText('Culling', { exact: true }).click();
      await arriveAt('docs/culling.html', 'Culling');
      await page.locator('.VPNavBar').getByText('Examples', { exact: true }).click();
      await arriveAt('docs/examples.html', 'Examples');
      await page.locator('main').getByRole('link', { name: '06-skinning' }).first().click();
      await arriveAt('examples/06-skinning.html', '06-skinning');
      assert.strictEqual(await page.evaluate(() => self.isSameVisit), true);
      await page.goBack();
      await arriveAt('docs/examples.html', 'Examples');
    });

    it('finds words of documents', async () => {
      const found = await search('skinning');
      assert.ok(
        found.some((url) => url === `${address}docs/animation.html#skinning`),
        found.join()
      );
    });

    it('finds members of the reference, and opens what is chosen', async () => {
      const found = await search('updateAnimators');
      const member = `${address}api/nq_logic/interfaces/Engine.html#updateanimators`;
      assert.ok(found.includes(member), found.join());
      await page.locator('.VPLocalSearchBox .result').nth(found.indexOf(member)).click();
      await arriveAt('api/nq_logic/interfaces/Engine.html', 'Engine');
      assert.strictEqual(await page.locator('#updateanimators').count(), 1);
    });

    it('finds nothing where there is nothing', async () => {
      await page.keyboard.press('Control+k');
      await page.locator('#localsearch-input').fill('qqzzxxqq');
      await page.locator('.VPLocalSearchBox .no-results').waitFor();
      assert.strictEqual(await page.locator('.VPLocalSearchBox .result').count(), 0);
    });

    it('follows the preferred colour scheme', async () => {
      const color = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
      assert.strictEqual(await color(), 'rgb(255, 255, 255)');
      await page.emulateMedia({ colorScheme: 'dark' });
      await page.reload();
      const [r, g, b] = (await color()).match(/\d+/g).map(Number);
      assert.ok(Math.max(r, g, b) < 64, `${r} ${g} ${b}`);
      await page.emulateMedia({ colorScheme: 'light' });
    });

    it('logs no errors', () => {
      assert.deepStrictEqual(page.troubles, []);
    });
  });

  it('has a search index of less than 3 MB', () => {
    const [index] = filesBelow(folders.site).filter((file) => /localSearchIndex/.test(file));
    const { size } = fs.statSync(path.join(folders.site, index));
    assert.ok(size < kMostIndexBytes, String(size));
  });
});

describe('findBrokenLinks', () => {
  let folder;

  beforeEach(() => {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-site-links-'));
    fs.mkdirSync(path.join(folder, 'docs'));
  });

  afterEach(() => fs.rmSync(folder, { recursive: true }));

  const write = (file, text) => fs.writeFileSync(path.join(folder, file), text);

  it('names the page, its source, and the link', () => {
    write('index.html', '<a class="x" href="docs/a.html#two">to a</a><img src="./b.png" alt="">');
    write('docs/a.html', '<h1 id="one">a</h1><a href="../c.html">to c</a>');
    assert.deepStrictEqual(findBrokenLinks(folder).sort(), [
      "docs/a.html (docs/a.md): the link '../c.html' leads nowhere: there is no c.html.",
      "index.html (README.md): the link './b.png' leads nowhere: there is no b.png.",
      "index.html (README.md): the link 'docs/a.html#two' leads nowhere: docs/a.html has no heading 'two'.",
    ]);
  });

  it('refuses links that lead out of the folder', () => {
    write('index.html', '<a href="/index.html">home</a>');
    write('docs/a.html', '<a href="../../index.html">up</a>');
    assert.deepStrictEqual(findBrokenLinks(folder).sort(), [
      "docs/a.html (docs/a.md): the link '../../index.html' leads nowhere: it is out of the site.",
      "index.html (README.md): the link '/index.html' leads nowhere: it is out of the site.",
    ]);
  });

  it('accepts links to files and anchors that exist', () => {
    write(
      'index.html',
      '<a href="./">home</a><a href="#">top</a><a href="docs/#%C3%BC">a</a><a href="https://example.org/x">x</a>'
    );
    write('docs/index.html', '<h2 id="ü">ü</h2><a href="../#">home</a><a href="./">this</a>');
    assert.deepStrictEqual(findBrokenLinks(folder), []);
  });
});
