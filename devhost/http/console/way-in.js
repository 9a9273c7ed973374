// The way-in page: takes the token, or a whole URL that carries one, and
// sends it as the query of a GET of the console, which the host answers by
// setting its cookie and sending the browser on without the token.
const form = document.getElementById('way-in');
const field = document.getElementById('token');

form.addEventListener('submit', (event) => {
  const given = field.value.trim();
  let token = given;
  try {
    const fromUrl = new URL(given).searchParams.get('token');
    if (fromUrl) {
      token = fromUrl;
    }
  } catch {
    // Not a URL: the token itself.
  }
  if (token !== field.value) {
    event.preventDefault();
    location.assign(`/?token=${encodeURIComponent(token)}`);
  }
});
