// Draws the page: unpacks its data and hands them to the parts of the page. Also the choice between
// light and dark, and what is done for paper.

const darkWanted = matchMedia('(prefers-color-scheme: dark)');

// Reading and writing what the browser keeps may be forbidden for a page from a file.
function kept() {
   try {
      return localStorage.getItem('postcard-colours') ?? '';
   } catch {
      return '';
   }
}

function keep(choice) {
   try {
      localStorage.setItem('postcard-colours', choice);
   } catch {
      // The choice then holds until the page is closed.
   }
}

function applyTheme() {
   const theme = byId('theme').value || (darkWanted.matches ? 'dark' : 'light');
   document.documentElement.dataset.theme = theme;
}

function startTheme() {
   byId('theme').value = kept();
   byId('theme').addEventListener('change', () => {
      keep(byId('theme').value);
      applyTheme();
   });
   darkWanted.addEventListener('change', applyTheme);
   applyTheme();
}

function fail(text) {
   byId('failure').textContent = text;
   byId('failure').hidden = false;
}

// Paper is light, and shows the beginning of each table instead of a window into it.
function preparePrint(tables) {
   addEventListener('beforeprint', () => {
      document.documentElement.dataset.theme = 'light';
      tables().forEach((table) => table.print());
   });
   addEventListener('afterprint', () => {
      applyTheme();
      tables().forEach((table) => table.endPrint());
   });
}

async function start() {
   startTheme();
   if (typeof DecompressionStream !== 'function') {
      fail('This browser is too old for this page: it cannot unpack its data (DecompressionStream).');
      return;
   }
   const model = makeModel(await unpack(byId('data').textContent));
   byId('data').remove();
   showSummary(model);
   const map = new EntryMap(model);
   const costs = [...showCosts(model), ...showAdvice(model)];
   const follower = new PacketFollower(model);
   new WarningList(model, (packet) => follower.go(packet));
   const rules = new RuleList(model);
   preparePrint(() => [...costs, rules.grid, ...(map.table ? [map.table] : [])]);
   document.documentElement.dataset.drawn = 'yes';
   performance.mark('drawn');
}

start().catch((error) => {
   fail(`The page cannot be drawn: ${error.message}. Was the file cut off?`);
   console.error(error);
});
